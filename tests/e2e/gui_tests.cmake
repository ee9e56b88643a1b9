# qmload (the Linux GUI) under Xvfb against qmload-sim, driven with xdotool.
# Screenshots of each stage are kept in the build tree (gui-shots/).
if(NOT TARGET qmload)
  return()
endif()
find_package(X11)
if(NOT X11_FOUND)
  message(STATUS "GUI end-to-end tests need the X11 headers: skipped")
  return()
endif()

add_executable(gui_close_window gui_close_window.cpp)
target_link_libraries(gui_close_window PRIVATE X11::X11)
qmload_warnings(gui_close_window)
add_executable(gui_drop_files gui_drop_files.cpp)
target_link_libraries(gui_drop_files PRIVATE X11::X11)
qmload_warnings(gui_drop_files)

foreach(case flash close-during-flash idle drop)
  add_test(NAME gui.${case} COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/gui_flash.sh ${case})
  set_tests_properties(gui.${case} PROPERTIES
    LABELS gui
    TIMEOUT 300
    ENVIRONMENT "QMLOAD_GUI=$<TARGET_FILE:qmload>;QMLOAD_CLI=$<TARGET_FILE:qmload-cli>;QMLOAD_SIM=$<TARGET_FILE:qmload-sim>;QMLOAD_CLOSE_WINDOW=$<TARGET_FILE:gui_close_window>;QMLOAD_DROP_FILES=$<TARGET_FILE:gui_drop_files>;QMLOAD_EXAMPLES=${CMAKE_SOURCE_DIR}/examples;QMLOAD_GUI_ARTIFACTS=${CMAKE_BINARY_DIR}/gui-shots/${case};LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/gui_lsan.supp")
endforeach()

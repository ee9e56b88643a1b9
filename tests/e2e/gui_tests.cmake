# qmload (the Linux GUI) under Xvfb against qmload-sim, driven with xdotool.
# Screenshots of each stage are kept in the build tree (gui-shots/).
if(NOT TARGET qmload)
  return()
endif()
find_package(X11)
if(NOT X11_FOUND)
  qmload_missing_prereq_test(gui.prerequisites "the X11 headers (libx11-dev)")
  return()
endif()

add_executable(gui_close_window gui_close_window.cpp)
target_link_libraries(gui_close_window PRIVATE X11::X11)
qmload_warnings(gui_close_window)
add_executable(gui_drop_files gui_drop_files.cpp)
target_link_libraries(gui_drop_files PRIVATE X11::X11)
qmload_warnings(gui_drop_files)

# Under AddressSanitizer the GUI runs with the GL driver kept loaded (see
# keep_gl_driver.c): the driver's own blocks are otherwise reported as leaks of an
# unknown module once glfwTerminate has unloaded it. The ASan runtime must come
# first in LD_PRELOAD.
set(gui_preload "")
if(CMAKE_CXX_FLAGS MATCHES "sanitize=[a-z,]*address")
  add_library(keep_gl_driver MODULE keep_gl_driver.c)
  set(gl_driver /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/dri/swrast_dri.so)
  target_compile_definitions(keep_gl_driver PRIVATE QMLOAD_GL_DRIVER="${gl_driver}")
  # The shim itself must not be instrumented: it runs before the ASan runtime is set up.
  target_compile_options(keep_gl_driver PRIVATE -fno-sanitize=all)
  target_link_options(keep_gl_driver PRIVATE -fno-sanitize=all)
  target_link_libraries(keep_gl_driver PRIVATE ${CMAKE_DL_LIBS})
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libasan.so OUTPUT_VARIABLE asan_runtime
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
  set(gui_preload "QMLOAD_GUI_PRELOAD=${asan_runtime}:$<TARGET_FILE:keep_gl_driver>")
endif()

foreach(case flash close-during-flash idle drop lost-port)
  add_test(NAME gui.${case} COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/gui_flash.sh ${case})
  set_tests_properties(gui.${case} PROPERTIES
    LABELS gui
    TIMEOUT 300
    ENVIRONMENT "QMLOAD_GUI=$<TARGET_FILE:qmload>;QMLOAD_CLI=$<TARGET_FILE:qmload-cli>;QMLOAD_SIM=$<TARGET_FILE:qmload-sim>;QMLOAD_CLOSE_WINDOW=$<TARGET_FILE:gui_close_window>;QMLOAD_DROP_FILES=$<TARGET_FILE:gui_drop_files>;QMLOAD_EXAMPLES=${CMAKE_SOURCE_DIR}/examples;QMLOAD_GUI_ARTIFACTS=${CMAKE_BINARY_DIR}/gui-shots/${case};LSAN_OPTIONS=suppressions=${CMAKE_CURRENT_SOURCE_DIR}/gui_lsan.supp;${gui_preload}")
endforeach()

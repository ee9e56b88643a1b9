# GoogleTest, CLI11 and nlohmann-json come from Debian's packages. For the Windows
# cross-build GoogleTest is compiled from Debian's source copy in /usr/src/googletest,
# and the header-only CLI11 and nlohmann-json are reached through links in the build
# tree so that the cross-compiler never sees the rest of /usr/include.

if(QMLOAD_TESTS)
  if(CMAKE_CROSSCOMPILING)
    set(gtest_force_shared_crt OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
    if(NOT TARGET GTest::gtest) # newer GoogleTest sources define these aliases themselves
      add_library(GTest::gtest ALIAS gtest)
      add_library(GTest::gtest_main ALIAS gtest_main)
      add_library(GTest::gmock ALIAS gmock)
    endif()
  else()
    find_package(GTest REQUIRED)
  endif()
  include(GoogleTest)
  if(CMAKE_CROSSCOMPILING AND CMAKE_CROSSCOMPILING_EMULATOR)
    # Test discovery runs each test program through the emulator with a 5 s limit;
    # start Wine's prefix and server now so that it finds them warm.
    execute_process(COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} --warm-up RESULT_VARIABLE qmload_wine_rc)
    if(NOT qmload_wine_rc EQUAL 0)
      # Under CI a missing Wine must stop the run, not leave the Windows tests out.
      if("$ENV{CI}" STREQUAL "true")
        message(FATAL_ERROR "Wine could not be prepared (install it with: bash scripts/setup.sh)")
      endif()
      message(WARNING "Wine could not be prepared (install it with: bash scripts/setup.sh); the tests of this build will fail")
    endif()
  endif()
endif()

# A header-only library in /usr/include/FOLDER as an interface target whose include
# root holds nothing but a link to that folder.
function(qmload_header_library target folder)
  set(root ${CMAKE_BINARY_DIR}/${target}-include)
  if(NOT EXISTS /usr/include/${folder})
    message(FATAL_ERROR "/usr/include/${folder} is missing (install it with: bash scripts/setup.sh)")
  endif()
  if(NOT EXISTS ${root}/${folder})
    file(MAKE_DIRECTORY ${root})
    file(CREATE_LINK /usr/include/${folder} ${root}/${folder} SYMBOLIC)
  endif()
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE ${root})
endfunction()
qmload_header_library(cli11 CLI)
qmload_header_library(nlohmann_json nlohmann)

# Nuklear headers are fetched by scripts/fetch-nuklear.sh into .deps/nuklear.
set(QMLOAD_NUKLEAR_DIR ${CMAKE_SOURCE_DIR}/.deps/nuklear)

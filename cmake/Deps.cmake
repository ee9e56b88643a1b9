# GoogleTest and CLI11 come from Debian's packages. For the Windows cross-build
# GoogleTest is compiled from Debian's source copy in /usr/src/googletest, and the
# header-only CLI11 is reached through a link in the build tree so that the
# cross-compiler never sees the rest of /usr/include.

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

set(QMLOAD_CLI11_DIR ${CMAKE_BINARY_DIR}/cli11-include)
if(NOT EXISTS ${QMLOAD_CLI11_DIR}/CLI)
  file(MAKE_DIRECTORY ${QMLOAD_CLI11_DIR})
  file(CREATE_LINK /usr/include/CLI ${QMLOAD_CLI11_DIR}/CLI SYMBOLIC)
endif()
add_library(cli11 INTERFACE)
target_include_directories(cli11 SYSTEM INTERFACE ${QMLOAD_CLI11_DIR})

# Nuklear headers are fetched by scripts/fetch-nuklear.sh into .deps/nuklear.
set(QMLOAD_NUKLEAR_DIR ${CMAKE_SOURCE_DIR}/.deps/nuklear)

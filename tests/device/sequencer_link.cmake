# The command line's reply check over a session on a pseudo-terminal (POSIX).
if(NOT WIN32)
  add_executable(sequencer_link_tests test_sequencer_link.cpp)
  target_link_libraries(sequencer_link_tests PRIVATE qm_device util GTest::gtest_main)
  qmload_warnings(sequencer_link_tests)
  gtest_discover_tests(sequencer_link_tests PROPERTIES LABELS tsan TIMEOUT 60)
endif()

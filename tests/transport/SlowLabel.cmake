if(transport_slow_test_TESTS)
  set_tests_properties(${transport_slow_test_TESTS} PROPERTIES LABELS "transport;slow")
endif()

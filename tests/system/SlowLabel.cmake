if(slow_system_tests_TESTS)
  set_tests_properties(${slow_system_tests_TESTS} PROPERTIES LABELS "system;slow")
endif()

# Tracing, texts, queue and checked calls. The allocator tests fail the process's allocator on demand and therefore are
# a program of their own, which sanitizers, owners of the allocator themselves, cannot run.
file(GLOB support_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/support_*.cpp)
list(FILTER support_sources EXCLUDE REGEX "/support_allocators\\.cpp$")
vxpad_unit_test(vxpad-test-support ${support_sources})

if(NOT VXPADCOM_SANITIZE)
  add_executable(vxpad-test-allocators ${CMAKE_CURRENT_LIST_DIR}/support_allocators.cpp)
  target_link_libraries(vxpad-test-allocators PRIVATE vxpadcom vxpadcom_settings GTest::gmock_main)
  gtest_discover_tests(vxpad-test-allocators DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 60 LABELS unit)
endif()

# The exported functions over the stand-ins of hidapi and libusb.
file(GLOB api_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/api_*.cpp)
vxpad_unit_test(vxpad-test-api ${api_sources})
if(VXPADCOM_SANITIZE)
  target_compile_definitions(vxpad-test-api PRIVATE VXPAD_SANITIZED=1)
else()
  target_compile_definitions(vxpad-test-api PRIVATE VXPAD_SANITIZED=0)
endif()

# Receiving and uploading over the stand-ins: the library's own threads at work.
file(GLOB receive_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/receive_*.cpp ${CMAKE_CURRENT_LIST_DIR}/upload_*.cpp)
list(FILTER receive_sources EXCLUDE REGEX receive_unload)
vxpad_unit_test(vxpad-test-receive ${receive_sources})
target_include_directories(vxpad-test-receive PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(vxpad-test-receive PRIVATE ${CMAKE_DL_LIBS})

# Not linked to the library: it opens and closes it.
add_executable(vxpad-test-unload ${CMAKE_CURRENT_LIST_DIR}/receive_unload.cpp)
add_dependencies(vxpad-test-unload vxpadcom)
target_include_directories(vxpad-test-unload PRIVATE ${PROJECT_SOURCE_DIR}/include)
target_link_libraries(vxpad-test-unload PRIVATE vxpadcom_settings GTest::gtest_main ${CMAKE_DL_LIBS})
target_compile_definitions(vxpad-test-unload PRIVATE LIBRARY_FILE="$<TARGET_FILE:vxpadcom>")
gtest_discover_tests(vxpad-test-unload DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 60 LABELS unit)

# A wrong VXPADCOM_USB_IDS is told here, in a sentence, and not by a compiler amid the build.
if(NOT EXISTS "${VXPADCOM_USB_IDS}" OR IS_DIRECTORY "${VXPADCOM_USB_IDS}")
  message(FATAL_ERROR "VXPADCOM_USB_IDS: there is no file ${VXPADCOM_USB_IDS}. "
                      "It must be a copy of src/transport/usb_ids.hpp with a maker's ids.")
endif()

set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${VXPADCOM_USB_IDS}")
file(SHA256 "${VXPADCOM_USB_IDS}" ids_hash)
if(NOT VXPADCOM_CHECKED_USB_IDS STREQUAL ids_hash AND NOT VXPADCOM_USB_IDS STREQUAL
   "${CMAKE_CURRENT_SOURCE_DIR}/src/transport/usb_ids.hpp")
  set(ids_check ${CMAKE_CURRENT_BINARY_DIR}/usb_ids_check.cpp)
  file(WRITE ${ids_check} [[
#include "transport/usb_id_tables.cpp"
constexpr auto are_ids = [](const auto& pairs) {
    return std::all_of(pairs.begin(), pairs.end(), [](const usb_id_tables::Pair& pair) {
        return pair.vendor_id > 0 && pair.vendor_id <= 0xffff && pair.product_id <= 0xffff;
    });
};
static_assert(are_ids(usb_id_tables::hid_pairs) && are_ids(usb_id_tables::vcom_pairs) &&
                  are_ids(std::array{usb_id_tables::Pair{usb_ids::vcom_named_vendor, usb_ids::vcom_named_product}}),
              "a USB id is a number of 16 bits, and that of a vendor is not 0");
static_assert(!usb_ids::vcom_named_makers.empty());
]])
  set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
  try_compile(ids_compile ${CMAKE_CURRENT_BINARY_DIR}/usb_ids_check ${ids_check}
    CMAKE_FLAGS "-DINCLUDE_DIRECTORIES=${CMAKE_CURRENT_SOURCE_DIR}/src;${CMAKE_CURRENT_SOURCE_DIR}/include"
    COMPILE_DEFINITIONS "-DVXPADCOM_USB_IDS_FILE=\"${VXPADCOM_USB_IDS}\""
    CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON
    OUTPUT_VARIABLE ids_trouble)
  unset(CMAKE_TRY_COMPILE_TARGET_TYPE)
  if(NOT ids_compile)
    message(FATAL_ERROR "VXPADCOM_USB_IDS: ${VXPADCOM_USB_IDS} is no copy of src/transport/usb_ids.hpp with a maker's "
                        "ids; the compiler says:\n${ids_trouble}")
  endif()
  set(VXPADCOM_CHECKED_USB_IDS ${ids_hash} CACHE INTERNAL "The id file that has been looked at")
endif()

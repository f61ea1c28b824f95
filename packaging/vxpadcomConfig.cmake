# Defines the target vxpadcom::vxpadcom. What the library itself is linked to is no concern of its users.
include("${CMAKE_CURRENT_LIST_DIR}/vxpadcomTargets.cmake")

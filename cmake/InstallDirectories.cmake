# Where things are once they are installed. Any of the CMAKE_INSTALL_ directories may be absolute.

# vxpadcom_from_bindir(VARIABLE DIRECTORY): the way to a directory of the installed tree from its programs, so that the
# tree can be moved as a whole; where one of the two is fixed, the absolute path.
function(vxpadcom_from_bindir variable directory)
  if(IS_ABSOLUTE "${directory}" OR IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}")
    get_filename_component(way "${directory}" ABSOLUTE BASE_DIR "${CMAKE_INSTALL_PREFIX}")
  else()
    file(RELATIVE_PATH way /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${directory})
  endif()
  set(${variable} "${way}" PARENT_SCOPE)
endfunction()

# vxpadcom_installed_rpath(TARGET): an installed program finds the library from its own place; where the loader looks
# anyway it has no path at all.
function(vxpadcom_installed_rpath target)
  vxpadcom_from_bindir(rpath "${CMAKE_INSTALL_LIBDIR}")
  if(NOT IS_ABSOLUTE "${rpath}")
    string(PREPEND rpath "$ORIGIN/")
  endif()
  if(CMAKE_INSTALL_FULL_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES OR CMAKE_INSTALL_FULL_LIBDIR IN_LIST
     CMAKE_PLATFORM_IMPLICIT_LINK_DIRECTORIES)
    set(rpath "")
  endif()
  # CMake makes room for the path of an installed program with empty entries, which would be the current directory: so
  # that of a built one is the longer one.
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "${rpath}" BUILD_RPATH "$ORIGIN/../.;$ORIGIN/.././.;$ORIGIN/../././.")
endfunction()

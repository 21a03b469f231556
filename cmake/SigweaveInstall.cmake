# What `cmake --install` lays down, in components that are also the packages: library, development, host, modules.
# Every path is relative, so that the installed tree works from any prefix and may be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The host finds the modules relative to itself, so their place does not depend on the machine's library folder.
set(SIGWEAVE_INSTALL_MODULES lib/sigweave/modules)
set(SIGWEAVE_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/sigweave)
set(SIGWEAVE_INSTALL_PKGCONFIG ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(SIGWEAVE_INSTALL_SHARE ${CMAKE_INSTALL_DATADIR}/sigweave)

# sigweave_relative(VARIABLE FROM TO): the path of one installed folder as seen from another.
function(sigweave_relative variable from to)
  file(RELATIVE_PATH path /${from} /${to})
  string(REGEX REPLACE "/$" "" path "${path}")
  set(${variable} "${path}" PARENT_SCOPE)
endfunction()

# The run path of a target that is built in `built` and installed in `folder`: one for both places, since a run path that
# is replaced at the installation leaves an empty entry in what is built, and that is the current directory.
function(sigweave_find_library_from built folder)
  sigweave_relative(near ${built} lib)
  sigweave_relative(path ${folder} ${CMAKE_INSTALL_LIBDIR})
  set(paths "$ORIGIN/${near}" "$ORIGIN/${path}")
  list(REMOVE_DUPLICATES paths)
  set_target_properties(${ARGN} PROPERTIES INSTALL_RPATH "${paths}" BUILD_WITH_INSTALL_RPATH ON)
endfunction()

install(TARGETS sigweave EXPORT sigweave-targets
        LIBRARY COMPONENT library NAMELINK_COMPONENT development
        FILE_SET HEADERS COMPONENT development)
install(EXPORT sigweave-targets NAMESPACE sigweave:: DESTINATION ${SIGWEAVE_INSTALL_CMAKE} COMPONENT development)

# The configuration is beside the build's own targets too: projects outside this tree find the library with
# -Dsigweave_DIR=<this build folder>.
set(SIGWEAVE_PROGRAM_FOLDER bin)
configure_file(cmake/sigweave-config.cmake.in ${CMAKE_BINARY_DIR}/sigweave-config.cmake @ONLY)
configure_file(cmake/SigweaveGraphTest.cmake ${CMAKE_BINARY_DIR} COPYONLY)
configure_file(cmake/SigweaveModule.cmake ${CMAKE_BINARY_DIR} COPYONLY)
sigweave_relative(SIGWEAVE_PROGRAM_FOLDER ${SIGWEAVE_INSTALL_CMAKE} ${CMAKE_INSTALL_BINDIR})
configure_file(cmake/sigweave-config.cmake.in ${CMAKE_BINARY_DIR}/install/sigweave-config.cmake @ONLY)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/sigweave-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/install/sigweave-config.cmake ${CMAKE_BINARY_DIR}/sigweave-config-version.cmake
              cmake/SigweaveGraphTest.cmake cmake/SigweaveModule.cmake
        DESTINATION ${SIGWEAVE_INSTALL_CMAKE} COMPONENT development)

sigweave_relative(SIGWEAVE_PREFIX ${SIGWEAVE_INSTALL_PKGCONFIG} "")
configure_file(cmake/sigweave.pc.in ${CMAKE_BINARY_DIR}/install/sigweave.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/install/sigweave.pc DESTINATION ${SIGWEAVE_INSTALL_PKGCONFIG} COMPONENT development)

install(TARGETS sigweave-host RUNTIME COMPONENT host)
sigweave_find_library_from(bin ${CMAKE_INSTALL_BINDIR} sigweave-host)
install(DIRECTORY examples/ DESTINATION ${SIGWEAVE_INSTALL_SHARE}/examples COMPONENT host
        PATTERN CMakeLists.txt EXCLUDE PATTERN gain EXCLUDE)
install(DIRECTORY examples/gain DESTINATION ${SIGWEAVE_INSTALL_SHARE}/examples COMPONENT development)

get_target_property(names modules MANUALLY_ADDED_DEPENDENCIES)
install(TARGETS ${names} LIBRARY DESTINATION ${SIGWEAVE_INSTALL_MODULES} COMPONENT modules)
sigweave_find_library_from(lib/sigweave/modules ${SIGWEAVE_INSTALL_MODULES} ${names})

# The package for Python, where Debian's Python looks for it below /usr, and what runs modules in Python.
if(SIGWEAVE_HAS_PYTHON)
  set(SIGWEAVE_INSTALL_PYTHON lib/python3/dist-packages CACHE STRING "Where the Python package is installed")
  file(GLOB PYTHON_FILES ${PROJECT_SOURCE_DIR}/python/sigweave/*.py ${PROJECT_SOURCE_DIR}/python/sigweave/*.pyi
       ${PROJECT_SOURCE_DIR}/python/sigweave/py.typed)
  install(FILES ${PYTHON_FILES} DESTINATION ${SIGWEAVE_INSTALL_PYTHON}/sigweave COMPONENT python)
  install(TARGETS sigweave-python LIBRARY DESTINATION ${SIGWEAVE_INSTALL_PYTHON}/sigweave COMPONENT python)
  install(TARGETS sigweave-python-loader LIBRARY DESTINATION lib/sigweave/python COMPONENT python)
  sigweave_find_library_from(python/sigweave ${SIGWEAVE_INSTALL_PYTHON}/sigweave sigweave-python)
  set_property(TARGET sigweave-python APPEND PROPERTY INSTALL_RPATH "$ORIGIN/lib")  # in a wheel
  sigweave_find_library_from(lib/sigweave/python lib/sigweave/python sigweave-python-loader)
endif()

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT licence)

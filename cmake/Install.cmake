# Installs what plug-in authors need (component "library"): both libraries, the
# program that reads cache files for them, their headers, and the files by which
# find_package(velmorprocessing) finds them. And the command (component "command").
include(CMakePackageConfigHelpers)
set_target_properties(velmorprocessing PROPERTIES EXPORT_NAME processing)
set_target_properties(velmorapi PROPERTIES EXPORT_NAME host)
set_target_properties(velmorhostapi PROPERTIES EXPORT_NAME hostapi)
set(VELMOR_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/velmorprocessing)
install(TARGETS velmorprocessing velmorapi velmorhostapi EXPORT velmorprocessing
  LIBRARY COMPONENT library
  FILE_SET HEADERS COMPONENT library)
install(TARGETS velmor-vdb-reader RUNTIME
  DESTINATION ${CMAKE_INSTALL_LIBEXECDIR} COMPONENT library)
install(TARGETS velmor RUNTIME COMPONENT command)
install(EXPORT velmorprocessing NAMESPACE Velmor:: FILE velmorprocessingTargets.cmake
  DESTINATION ${VELMOR_CONFIG_DIR} COMPONENT library)
write_basic_package_version_file(velmorprocessingConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/velmorprocessingConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/velmorprocessingConfigVersion.cmake
  DESTINATION ${VELMOR_CONFIG_DIR} COMPONENT library)

# Installs what plug-in authors need: both libraries, their headers, and the
# files by which find_package(velmorprocessing) finds them.
set_target_properties(velmorprocessing PROPERTIES EXPORT_NAME processing)
set_target_properties(velmorapi PROPERTIES EXPORT_NAME host)
set_target_properties(velmorhostapi PROPERTIES EXPORT_NAME hostapi)
set(VELMOR_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/velmorprocessing)
install(TARGETS velmorprocessing velmorapi velmorhostapi EXPORT velmorprocessing
  LIBRARY COMPONENT library
  FILE_SET HEADERS COMPONENT library)
install(EXPORT velmorprocessing NAMESPACE Velmor:: FILE velmorprocessingTargets.cmake
  DESTINATION ${VELMOR_CONFIG_DIR} COMPONENT library)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/velmorprocessingConfig.cmake
  DESTINATION ${VELMOR_CONFIG_DIR} COMPONENT library)

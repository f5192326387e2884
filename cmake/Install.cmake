include(CMakePackageConfigHelpers)

install(TARGETS PDFKilnPage EXPORT PDFKilnPageTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(DIRECTORY ${PROJECT_SOURCE_DIR}/Include/PDFKilnPage
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
# Support-library headers that the public headers include, beside them.
install(DIRECTORY
  ${PROJECT_SOURCE_DIR}/Source/QarMemStream/include/QarMemStream
  ${PROJECT_SOURCE_DIR}/Source/ZQGraphicService/include/ZQGraphicService
  ${PROJECT_SOURCE_DIR}/Source/ZQXml/include/ZQXml
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/PDFKilnPage FILES_MATCHING PATTERN "*.h")

install(EXPORT PDFKilnPageTargets NAMESPACE PDFKilnPage::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/PDFKilnPage)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/PDFKilnPageConfig.cmake.in
  ${PROJECT_BINARY_DIR}/PDFKilnPageConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/PDFKilnPage)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/PDFKilnPageConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/PDFKilnPageConfig.cmake
  ${PROJECT_BINARY_DIR}/PDFKilnPageConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/PDFKilnPage)

configure_file(${PROJECT_SOURCE_DIR}/cmake/PDFKilnPage.pc.in ${PROJECT_BINARY_DIR}/PDFKilnPage.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/PDFKilnPage.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The Debian package: `cpack -G DEB` in a build tree makes
# norvo_<version>_<architecture>.deb (scripts/deb.sh builds a release tree for
# it). Its dependencies come from dpkg-shlibdeps over what it installs, plus
# Qt's SVG plugin, which Qt loads at run time for the icons and which no
# linked library names.
find_program(NORVO_GZIP gzip REQUIRED)

# Debian's documentation: copyright, a compressed changelog and man page.
set(norvo_doc_dir ${PROJECT_BINARY_DIR}/debian)
configure_file(data/debian/changelog.in ${norvo_doc_dir}/changelog @ONLY)
add_custom_command(OUTPUT ${norvo_doc_dir}/changelog.gz
  COMMAND ${NORVO_GZIP} -9nf ${norvo_doc_dir}/changelog -c > ${norvo_doc_dir}/changelog.gz
  DEPENDS ${norvo_doc_dir}/changelog)
add_custom_command(OUTPUT ${norvo_doc_dir}/norvo.1.gz
  COMMAND ${NORVO_GZIP} -9nf ${PROJECT_SOURCE_DIR}/data/norvo.1 -c > ${norvo_doc_dir}/norvo.1.gz
  DEPENDS ${PROJECT_SOURCE_DIR}/data/norvo.1)
add_custom_target(norvo_package_docs ALL DEPENDS ${norvo_doc_dir}/changelog.gz ${norvo_doc_dir}/norvo.1.gz)
install(FILES data/debian/copyright ${norvo_doc_dir}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/norvo)
install(FILES ${norvo_doc_dir}/norvo.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME norvo)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR Tesselwick)
set(CPACK_PACKAGE_CONTACT "Tesselwick <norvo@tesselwick.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "personal time tracker in the desktop tray")
set(CPACK_PACKAGE_DESCRIPTION "Norvo keeps one timer running against the current project and shows its
clock in the tray of the desktop panel. Projects are local, or come from
accounts at project-management, issue-tracking, time-tracking and invoicing
services, to which it posts the tracked time.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://www.tesselwick.com/norvo/")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt6svg6")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
include(CPack)

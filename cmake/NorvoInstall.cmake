# Where an installed Norvo keeps its files, after the XDG rules:
#   bin/norvo                                          the program
#   share/applications/com.tesselwick.Norvo.desktop    menu entry
#   share/metainfo/com.tesselwick.Norvo.metainfo.xml   software-centre data
#   share/icons/hicolor/scalable/{apps,status}/...     application and tray icons
#   share/locale/<language>/LC_MESSAGES/norvo.mo       translations
#   share/norvo/sounds/printer_sound.wav               the log's printer sound
#   share/norvo/help/index.html                        the help that "Norvo Help" opens
#   share/norvo/changelog                              what "Release Notes" shows
# The program finds its files in the share folder beside its bin folder. The
# build tree gets the same share/ layout (catalogs and icons), so that a
# program run from build/src finds them too, and an installed copy never
# looks into the source tree.
set(NORVO_APPLICATION_ID com.tesselwick.Norvo)
set(NORVO_BUILD_SHARE_DIR ${PROJECT_BINARY_DIR}/share)

install(FILES data/${NORVO_APPLICATION_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES data/${NORVO_APPLICATION_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(DIRECTORY data/icons/ DESTINATION ${CMAKE_INSTALL_DATADIR}/icons FILES_MATCHING PATTERN "*.svg")
install(FILES data/sounds/printer_sound.wav DESTINATION ${CMAKE_INSTALL_DATADIR}/norvo/sounds)
install(FILES data/help/index.html DESTINATION ${CMAKE_INSTALL_DATADIR}/norvo/help)
configure_file(data/debian/changelog.in ${NORVO_BUILD_SHARE_DIR}/norvo/changelog @ONLY)
install(FILES ${NORVO_BUILD_SHARE_DIR}/norvo/changelog DESTINATION ${CMAKE_INSTALL_DATADIR}/norvo)

set(norvo_share_outputs)
file(GLOB_RECURSE norvo_icons CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/data/icons/*.svg)
foreach(icon ${norvo_icons})
  file(RELATIVE_PATH relative ${PROJECT_SOURCE_DIR}/data/icons ${icon})
  set(copy ${NORVO_BUILD_SHARE_DIR}/icons/${relative})
  add_custom_command(OUTPUT ${copy} COMMAND ${CMAKE_COMMAND} -E copy ${icon} ${copy} DEPENDS ${icon} VERBATIM)
  list(APPEND norvo_share_outputs ${copy})
endforeach()
set(norvo_sound ${NORVO_BUILD_SHARE_DIR}/norvo/sounds/printer_sound.wav)
add_custom_command(OUTPUT ${norvo_sound}
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/data/sounds/printer_sound.wav ${norvo_sound}
  DEPENDS ${PROJECT_SOURCE_DIR}/data/sounds/printer_sound.wav VERBATIM)
list(APPEND norvo_share_outputs ${norvo_sound})
set(norvo_help ${NORVO_BUILD_SHARE_DIR}/norvo/help/index.html)
add_custom_command(OUTPUT ${norvo_help}
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/data/help/index.html ${norvo_help}
  DEPENDS ${PROJECT_SOURCE_DIR}/data/help/index.html VERBATIM)
list(APPEND norvo_share_outputs ${norvo_help})

# Translations: po/<language>.po for every language of po/LINGUAS, compiled
# with msgfmt, which also checks that the formats match their message ids.
find_program(NORVO_MSGFMT msgfmt REQUIRED)
file(STRINGS po/LINGUAS NORVO_LANGUAGES REGEX "^[a-zA-Z_@]+$")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/po/LINGUAS)
foreach(language ${NORVO_LANGUAGES})
  set(catalog ${NORVO_BUILD_SHARE_DIR}/locale/${language}/LC_MESSAGES/norvo.mo)
  add_custom_command(OUTPUT ${catalog}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${NORVO_BUILD_SHARE_DIR}/locale/${language}/LC_MESSAGES
    COMMAND ${NORVO_MSGFMT} --check -o ${catalog} ${PROJECT_SOURCE_DIR}/po/${language}.po
    DEPENDS ${PROJECT_SOURCE_DIR}/po/${language}.po VERBATIM)
  list(APPEND norvo_share_outputs ${catalog})
  install(FILES ${catalog} DESTINATION ${CMAKE_INSTALL_LOCALEDIR}/${language}/LC_MESSAGES)
endforeach()
add_custom_target(norvo_share ALL DEPENDS ${norvo_share_outputs})
if(TARGET norvo)
  add_dependencies(norvo norvo_share)
endif()

# cmake --build <dir> --target norvo_pot: extracts the visible texts into
# po/norvo.pot, from which translators start or update a catalog
# (msgmerge --update po/de.po po/norvo.pot).
add_custom_target(norvo_pot
  COMMAND ${PROJECT_SOURCE_DIR}/po/update-pot.sh ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/po/norvo.pot
  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
  COMMENT "Extracting the visible texts into po/norvo.pot" VERBATIM)

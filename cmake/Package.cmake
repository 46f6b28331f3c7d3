# The Debian package (`cpack -G DEB` in the build folder): the program, its
# desktop entry, icon and AppStream metainfo, manual pages and completion,
# with the copyright file and changelog Debian policy asks for (checked by
# lintian in scripts/test.sh). Library dependencies come from
# dpkg-shlibdeps; what the program finds at run time by path or by name (the
# ffmpeg executable of the second audio road, the fonts of the interface and
# of burnt-in text) is listed by hand.
include(GNUInstallDirs)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorvel)
set(CPACK_PACKAGE_VENDOR "Quorvel")
set(CPACK_PACKAGE_CONTACT "Quorvel <equipe@quorvel.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "montage multicaméra des sets DJ, synchronisé par le son")
set(CPACK_PACKAGE_DESCRIPTION
    "Quorvel place sur une même ligne de temps, par le son seul, les fichiers de\n\
jusqu'à huit caméras et quatre enregistreurs d'un set DJ, trouve les drops,\n\
permet de couper en direct au clavier ou automatiquement, et exporte un XML\n\
pour Premiere Pro ou DaVinci Resolve ou une vidéo finie.")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "ffmpeg, fonts-dejavu-core, fonts-inter, fonts-b612, fonts-material-design-icons-iconfont")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "desktop-file-utils")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The changelog's newest entry is this version's: a release that forgot it
# would ship a package whose history stops at the one before.
file(STRINGS ${PROJECT_SOURCE_DIR}/data/debian/changelog _newest LIMIT_COUNT 1)
if(NOT _newest MATCHES "^quorvel \\(${PROJECT_VERSION}\\) ")
  message(FATAL_ERROR "data/debian/changelog must begin with an entry for version ${PROJECT_VERSION}")
endif()

# The package is native (no Debian revision), so its changelog is
# changelog.gz, compressed without name or time like the manual pages.
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/debian/changelog.gz
                   COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/debian
                   COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/data/debian/changelog
                           ${PROJECT_BINARY_DIR}/debian/changelog
                   COMMAND ${GZIP} -9nf ${PROJECT_BINARY_DIR}/debian/changelog
                   DEPENDS ${PROJECT_SOURCE_DIR}/data/debian/changelog VERBATIM)
add_custom_target(debian_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/debian/changelog.gz)
install(FILES ${PROJECT_SOURCE_DIR}/data/debian/copyright ${PROJECT_BINARY_DIR}/debian/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/quorvel)
include(CPack)

# The Debian package (`cpack -G DEB` in the build folder): the program, its
# desktop entry, icon and AppStream metainfo. Library dependencies come from
# dpkg-shlibdeps; what the program finds at run time by path or by name (the
# ffmpeg executable of the second audio road, the fonts of the interface and
# of burnt-in text) is listed by hand.
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
include(CPack)

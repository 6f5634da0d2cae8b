# The Debian package (cpack -G DEB, or scripts/package). Qt comes from the
# distribution: dpkg-shlibdeps turns the linked libraries into dependencies,
# nothing of Qt is copied into the package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME mervasto)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "Mervasto developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "measure periods, pulse widths and duty of repeated signals")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Mervasto developers")
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The summary line comes from CPACK_PACKAGE_DESCRIPTION_SUMMARY; CPack
# indents these lines and marks the empty one as a paragraph break.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Mervasto takes up to four channels of waveform data from a digital storage
oscilloscope on the local network or from wave CSV files, finds every period
or pulse with a decision level and hysteresis, measures each cycle, reduces
the measurements to min, max, mean, sigma and count, judges counts Go/NG and
logs, stores and copies the results.

The package holds the window program (mervasto), the command line
(mervasto-cli) and an instrument simulator (mervasto-dsosim).")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Not a linked library, so dpkg-shlibdeps cannot see it: the platform plugins
# that let the window program open a window at all.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins")
include(CPack)

# cmake --install: the three programs, the desktop entry and icon, the manual
# page of mervasto-cli, the documentation, the examples and the licence.
set(MERVASTO_DOCDIR ${CMAKE_INSTALL_DOCDIR})
if(MERVASTO_DOCDIR STREQUAL "${CMAKE_INSTALL_DATAROOTDIR}/doc/Mervasto")
  # The package is called mervasto; its docs live under that name.
  set(MERVASTO_DOCDIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/mervasto)
endif()

# The help window reads the installed documents relative to the program, and
# those of the source tree when it runs from a build.
if(TARGET mervasto_gui)
  file(RELATIVE_PATH _docs_from_program ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}
    ${CMAKE_INSTALL_PREFIX}/${MERVASTO_DOCDIR}/docs)
  target_compile_definitions(mervasto_gui PRIVATE MERVASTO_DOCS_FROM_PROGRAM="${_docs_from_program}"
    MERVASTO_SOURCE_DOCS="${PROJECT_SOURCE_DIR}/docs")
endif()

foreach(program mervasto mervasto-cli mervasto-dsosim)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

if(TARGET mervasto)
  install(FILES packaging/mervasto.desktop DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/applications)
  install(FILES packaging/mervasto.svg
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/icons/hicolor/scalable/apps)
  # Bitmap sizes for desktops that do not scale the SVG, drawn from it at
  # build time.
  find_program(MERVASTO_RSVG_CONVERT rsvg-convert)
  if(MERVASTO_RSVG_CONVERT)
    set(_pngs)
    foreach(size 16 24 32 48 64 128 256)
      set(_png ${PROJECT_BINARY_DIR}/icons/${size}x${size}/mervasto.png)
      add_custom_command(OUTPUT ${_png}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/icons/${size}x${size}
        COMMAND ${MERVASTO_RSVG_CONVERT} -w ${size} -h ${size} -o ${_png} ${PROJECT_SOURCE_DIR}/packaging/mervasto.svg
        DEPENDS ${PROJECT_SOURCE_DIR}/packaging/mervasto.svg
        COMMENT "Drawing the ${size}x${size} icon" VERBATIM)
      list(APPEND _pngs ${_png})
      install(FILES ${_png} DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/icons/hicolor/${size}x${size}/apps)
    endforeach()
    add_custom_target(mervasto_icons ALL DEPENDS ${_pngs})
  else()
    message(WARNING "rsvg-convert (librsvg2-bin) not found: only the SVG icon is installed")
  endif()
endif()

if(TARGET mervasto-cli AND NOT CMAKE_CROSSCOMPILING)
  set(_man ${PROJECT_BINARY_DIR}/man/mervasto-cli.1.gz)
  add_custom_command(OUTPUT ${_man}
    COMMAND ${CMAKE_COMMAND} -DPROGRAM=$<TARGET_FILE:mervasto-cli> -DNAME=mervasto-cli
            -DVERSION=${PROJECT_VERSION} -DDOCDIR=${CMAKE_INSTALL_PREFIX}/${MERVASTO_DOCDIR}
            -DOUT=${_man} -P ${PROJECT_SOURCE_DIR}/cmake/ManPage.cmake
    DEPENDS mervasto-cli ${PROJECT_SOURCE_DIR}/cmake/ManPage.cmake
    COMMENT "Writing the manual page of mervasto-cli from its --help" VERBATIM)
  add_custom_target(mervasto_man ALL DEPENDS ${_man})
  install(FILES ${_man} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

install(FILES README.md LICENSE DESTINATION ${MERVASTO_DOCDIR})
# Debian looks for the licence of a package in this file.
install(FILES packaging/copyright DESTINATION ${MERVASTO_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${MERVASTO_DOCDIR}/docs)
install(DIRECTORY examples/ DESTINATION ${MERVASTO_DOCDIR}/examples)

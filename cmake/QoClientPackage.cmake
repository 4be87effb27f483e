# How a component finds what cmake --install BUILD --component client installs.

# qo_install_pkg_config(NAME): packaging/NAME.pc.in, filled in with the variables of the caller.
function(qo_install_pkg_config name)
    file(RELATIVE_PATH QO_PKGCONFIG_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    configure_file(${PROJECT_SOURCE_DIR}/packaging/${name}.pc.in ${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT client)
endfunction()

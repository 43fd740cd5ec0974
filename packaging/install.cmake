# SPDX-License-Identifier: MIT
#
# What is installed, in the components `runtime`, `dev`, `tools`, `csharp` and, on request,
# `standins`: a package is made of each (debian/, packaging/zavservice-api.spec). Everything that is
# installed can be moved as a whole afterwards. And the reference documentation.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZAV_ZSH_COMPLETIONS_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
    CACHE STRING "where zsh looks for completions")

# ---- runtime

install(TARGETS zavservice-api LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
install(FILES packaging/org.kelmar.tv.zav.conf
        DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/system.d COMPONENT runtime)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

# ---- dev

# Both files find the prefix from where they lie themselves.
file(RELATIVE_PATH up_to_prefix
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" up_to_prefix ${up_to_prefix})
configure_file(packaging/zavservice-api.pc.in zavservice-api.pc @ONLY)
configure_package_config_file(
    packaging/zavservice-api-config.cmake.in zavservice-api-config.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zavservice-api
    PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR
    NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(zavservice-api-config-version.cmake
    COMPATIBILITY SameMajorVersion)

install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
    FILES_MATCHING PATTERN *.h)
install(FILES ${PROJECT_BINARY_DIR}/zavservice-api.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/zavservice-api-config.cmake
              ${PROJECT_BINARY_DIR}/zavservice-api-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zavservice-api COMPONENT dev)
install(FILES service/org.kelmar.tv.zav.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces COMPONENT dev)
install(FILES docs/man/zavservice-api.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT dev)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)

# ---- tools

install(TARGETS zavctl zav-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
install(FILES docs/man/zavctl.1 docs/man/zav-sim.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES service/org.kelmar.tv.zav.Sim.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces COMPONENT tools)

foreach(program zavctl zav-sim) # bash and fish look for a file of the program's name
    install(FILES cli/completion/bash RENAME ${program}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    install(FILES cli/completion/fish RENAME ${program}.fish
            DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
endforeach()
install(FILES cli/completion/zsh RENAME _zavctl
        DESTINATION ${ZAV_ZSH_COMPLETIONS_DIR} COMPONENT tools)

# ---- standins: what was built for lack of the platform's own libraries

foreach(standin platform-log ruvi-lumo)
    get_target_property(is_the_platforms ${standin} IMPORTED)
    if(NOT is_the_platforms)
        install(TARGETS ${standin} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
                COMPONENT standins EXCLUDE_FROM_ALL)
    endif()
endforeach()

# ---- csharp: the managed binding, as Mono's compiler made it

if(TARGET csharp)
    install(FILES ${PROJECT_BINARY_DIR}/ZavService.dll ${PROJECT_BINARY_DIR}/ZavService.xml
            DESTINATION lib/cli/zavservice-api COMPONENT csharp)
endif()

# ---- reference documentation

add_custom_target(docs
    COMMAND ${PROJECT_SOURCE_DIR}/docs/reference ${PROJECT_BINARY_DIR}/reference
    VERBATIM)

# SPDX-License-Identifier: MIT
#
# What is installed, in the components `runtime`, `dev`, `tools`, `csharp` and, on request,
# `standins`; the Debian packages, one for each component; the reference documentation. Everything
# that is installed can be moved as a whole afterwards.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# zsh looks for what Debian's packages bring in a folder of its own.
if(CMAKE_INSTALL_PREFIX STREQUAL /usr AND EXISTS /etc/debian_version)
    set(zsh_default vendor-completions)
else()
    set(zsh_default site-functions)
endif()
set(ZAV_ZSH_COMPLETIONS_DIR ${CMAKE_INSTALL_DATADIR}/zsh/${zsh_default}
    CACHE STRING "where zsh looks for completions")

# Debian's names; the documentation of a component lies under the name of its package.
set(package_runtime libzavservice-api)
set(package_dev libzavservice-api-dev)
set(package_tools zavservice-api-tools)
set(package_csharp libzavservice-api-cil)
set(package_standins libzavservice-api-standins)

# ---- runtime

install(TARGETS zavservice-api LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
install(FILES packaging/org.kelmar.tv.zav.conf
        DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/system.d COMPONENT runtime)

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

install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/zavservice-api.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
install(FILES ${PROJECT_BINARY_DIR}/zavservice-api-config.cmake
              ${PROJECT_BINARY_DIR}/zavservice-api-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zavservice-api COMPONENT dev)
install(FILES service/org.kelmar.tv.zav.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces COMPONENT dev)
install(FILES docs/man/zavservice-api.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT dev)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package_dev} COMPONENT dev)

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

set(components runtime dev tools)
foreach(standin platform-log ruvi-lumo)
    get_target_property(is_the_platforms ${standin} IMPORTED)
    if(NOT is_the_platforms)
        install(TARGETS ${standin} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
                COMPONENT standins EXCLUDE_FROM_ALL)
        list(APPEND components standins)
    endif()
endforeach()
list(REMOVE_DUPLICATES components)

# ---- csharp: the managed binding, as Mono's compiler made it

if(TARGET csharp)
    install(FILES ${PROJECT_BINARY_DIR}/ZavService.dll ${PROJECT_BINARY_DIR}/ZavService.xml
            DESTINATION lib/cli/zavservice-api COMPONENT csharp)
    list(APPEND components csharp)
endif()

# ---- Debian packages

foreach(component ${components})
    set(on_request)
    if(component STREQUAL standins)
        set(on_request EXCLUDE_FROM_ALL)
    endif()
    install(FILES LICENSE RENAME copyright ${on_request}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package_${component}}
            COMPONENT ${component})
    string(TOUPPER ${component} COMPONENT)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package_${component}})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The zavservice-api maintainers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "control of a television's sound devices through ZAVService")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

# The platform's libraries belong to no package: a dependency on them cannot be written down.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS ${package_standins})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${package_runtime} (= ${PROJECT_VERSION}), libglib2.0-dev")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${package_runtime} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_CSHARP_PACKAGE_SECTION cli-mono)
set(CPACK_DEBIAN_CSHARP_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_CSHARP_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_CSHARP_PACKAGE_DEPENDS
    "${package_runtime} (= ${PROJECT_VERSION}), mono-runtime, libmono-system-core4.0-cil")
set(CPACK_DEBIAN_STANDINS_PACKAGE_SECTION libs)
include(CPack)

# ---- reference documentation

add_custom_target(docs
    COMMAND ${PROJECT_SOURCE_DIR}/docs/reference ${PROJECT_BINARY_DIR}/reference
    VERBATIM)

# The packages, from the components `library`, `development`, `tools` and `gateway` of the install rules; cpack makes them from a
# build folder, scripts/packages from all. On Linux Debian packages and a tar.gz, for Windows one zip of both builds.
set(PTZD_MAINTAINER "PTZD developers <maintainers@ptzd.invalid>" CACHE STRING "Whom packages name to write to")

# CHANGELOG.md begins with the version that is built.
file(STRINGS CHANGELOG.md RELEASE REGEX "^## " LIMIT_COUNT 1)
if(NOT RELEASE MATCHES "^## ${PROJECT_VERSION} - ([0-9]+-[0-9]+-[0-9]+)$")
  message(FATAL_ERROR "CHANGELOG.md begins with \"${RELEASE}\", not with \"## ${PROJECT_VERSION} - DATE\"")
endif()
set(RELEASE_DATE ${CMAKE_MATCH_1})
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS CHANGELOG.md)

set(CPACK_PACKAGE_NAME ptzd)
set(CPACK_PACKAGE_VENDOR "PTZD developers")
set(CPACK_PACKAGE_CONTACT ${PTZD_MAINTAINER})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Steers pan-tilt-zoom cameras of many makes through one interface")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

if(WIN32)
  # The programs are the 32-bit build's, which run everywhere; the library is there for hosts of either kind.
  install(FILES packages/register.cmd packages/unregister.cmd README.md CHANGELOG.md DESTINATION . COMPONENT tools)
  install(DIRECTORY docs DESTINATION . COMPONENT tools)
  install(FILES packages/copyright DESTINATION . RENAME copyright.txt COMPONENT tools)
  install(FILES /usr/share/doc/mingw-w64-common/copyright DESTINATION . RENAME copyright-mingw-w64.txt COMPONENT tools)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_SYSTEM_NAME windows)
  set(CPACK_PACKAGE_FILE_NAME ptzd-${PROJECT_VERSION}-windows)
  set(CPACK_INSTALL_CMAKE_PROJECTS
      "${PROJECT_SOURCE_DIR}/build/win32;ptzd;library;/;${PROJECT_SOURCE_DIR}/build/win32;ptzd;tools;/"
      "${PROJECT_SOURCE_DIR}/build/win64;ptzd;library;/")
  include(CPack)
  return()
endif()

set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_FILE_NAME ptzd-${PROJECT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR})
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/ptzd-tools COMPONENT tools)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/ptzd-tools COMPONENT tools)
if(TARGET ptzgate)
  set(GATEWAY_DOC ${CMAKE_INSTALL_DATADIR}/doc/ptzd-gateway)
  install(FILES docs/ptzgate.md docs/onvif.md docs/scaling.md docs/grafana.json docs/console-light.png
                docs/console-narrow.png DESTINATION ${GATEWAY_DOC} COMPONENT gateway)
  install(FILES packages/gateway/gate.toml DESTINATION ${GATEWAY_DOC}/examples COMPONENT gateway)
  install(FILES packages/gateway/ptzgate.service packages/gateway/ptzgate.socket DESTINATION lib/systemd/system
          COMPONENT gateway)
endif()

if(BUILD_SHARED_LIBS AND EXISTS /etc/debian_version)
  list(APPEND CPACK_GENERATOR DEB)
  set(DEBIAN_REVISION 1)
  set(LIBRARY_PACKAGE libptzd${PROJECT_VERSION})
  set(DEBIAN ${CMAKE_CURRENT_BINARY_DIR}/debian)
  set(SUBJECT "Drivers for network cameras of many makes and for receivers on a serial line,
all behind one interface: moves by direction and to absolute angles, zoom,
iris, focus, presets and continuous motion.")
  set(CPACK_COMPONENTS_ALL library development tools)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_RELEASE ${DEBIAN_REVISION})
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

  set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${LIBRARY_PACKAGE})
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${DEBIAN}/shlibs ${DEBIAN}/triggers)
  set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "${SUBJECT}

This package has the shared library.")

  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libptzd-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${LIBRARY_PACKAGE} (= ${PROJECT_VERSION}-${DEBIAN_REVISION})")
  set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${SUBJECT}

This package has the headers of the C++20 library, its CMake package and its
file for pkg-config.")

  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ptzd-tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_TOOLS_DESCRIPTION "${SUBJECT}

This package has ptzctl, which does every operation from a shell and shows the
requests that it took, and ptzsim, which simulates cameras of every make for
those who have none at hand.")

  set(packaged LIBRARY DEVELOPMENT TOOLS)
  if(TARGET ptzgate)
    list(APPEND packaged GATEWAY)
    list(APPEND CPACK_COMPONENTS_ALL gateway)
    set(CPACK_DEBIAN_GATEWAY_PACKAGE_NAME ptzd-gateway)
    set(CPACK_DEBIAN_GATEWAY_PACKAGE_SECTION net)
    set(CPACK_DEBIAN_GATEWAY_PACKAGE_DEPENDS "adduser, init-system-helpers (>= 1.52)")
    set(CPACK_DEBIAN_GATEWAY_PACKAGE_RECOMMENDS ptzd-tools)
    set(CPACK_DEBIAN_GATEWAY_DESCRIPTION "${SUBJECT}

This package has ptzgate, a service that offers the cameras of a site to
others: in a browser, as ONVIF devices, as JSON over HTTP and WebSocket, and
at an MQTT broker with Home Assistant's discovery.")
    file(WRITE ${DEBIAN}/conffiles "/etc/ptzgate/gate.toml\n")
    set(CPACK_DEBIAN_GATEWAY_PACKAGE_CONTROL_EXTRA
        ${CMAKE_CURRENT_LIST_DIR}/../packages/gateway/postinst ${CMAKE_CURRENT_LIST_DIR}/../packages/gateway/prerm
        ${CMAKE_CURRENT_LIST_DIR}/../packages/gateway/postrm ${DEBIAN}/conffiles)
    # Beside the folder that all else goes below.
    install(FILES packages/gateway/gate.toml DESTINATION ../etc/ptzgate COMPONENT gateway EXCLUDE_FROM_ALL)
  endif()

  configure_file(CHANGELOG.md ${DEBIAN}/changelog COPYONLY)
  execute_process(COMMAND date -R -u -d ${RELEASE_DATE} OUTPUT_VARIABLE RELEASE_DATE_IN_WORDS
                  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  file(WRITE ${DEBIAN}/changelog.Debian "ptzd (${PROJECT_VERSION}-${DEBIAN_REVISION}) unstable; urgency=medium

  * Release ${PROJECT_VERSION}; changelog.gz tells what is new.

 -- ${PTZD_MAINTAINER}  ${RELEASE_DATE_IN_WORDS}
")
  execute_process(COMMAND gzip -9nf changelog changelog.Debian WORKING_DIRECTORY ${DEBIAN} COMMAND_ERROR_IS_FATAL ANY)
  # The version is a part of the library's name, so what is built with one runs with every repair of it.
  file(WRITE ${DEBIAN}/shlibs "libptzd ${PROJECT_VERSION} ${LIBRARY_PACKAGE} (>= ${PROJECT_VERSION})\n")
  file(WRITE ${DEBIAN}/triggers "activate-noawait ldconfig\n")
  foreach(component ${packaged})
    string(TOLOWER ${component} name)
    set(package ${CPACK_DEBIAN_${component}_PACKAGE_NAME})
    set(overrides "# It is not uploaded to Debian.\n${package}: initial-upload-closes-no-bugs *\n")
    if(component STREQUAL LIBRARY)
      string(APPEND overrides "# cpack adds the call, beside the trigger that would do.\n"
                              "${package}: maintscript-calls-ldconfig *\n")
    endif()
    file(WRITE ${DEBIAN}/${package} "${overrides}")
    install(FILES ${DEBIAN}/${package} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
            COMPONENT ${name} EXCLUDE_FROM_ALL)
    install(FILES packages/copyright ${DEBIAN}/changelog.gz ${DEBIAN}/changelog.Debian.gz
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${name} EXCLUDE_FROM_ALL)
  endforeach()
endif()
include(CPack)

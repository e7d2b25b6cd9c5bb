# The libraries that are headers only: Boost::headers, nlohmann_json::nlohmann_json,
# CLI11::CLI11 and tomlplusplus::tomlplusplus.
#
# A cross compiler may not look into this machine's /usr/include, where the system's own headers lie beside
# them. It gets a folder with links to just these.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(Boost 1.74 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  find_package(CLI11 REQUIRED)
  find_package(tomlplusplus REQUIRED)
elseif(NOT TARGET Boost::headers)
  set(HEADER_LIBRARIES ${CMAKE_BINARY_DIR}/header-libraries)
  foreach(library Boost::headers:boost nlohmann_json::nlohmann_json:nlohmann CLI11::CLI11:CLI
                  tomlplusplus::tomlplusplus:toml++)
    string(REGEX MATCH "^(.*):([A-Za-z+]+)$" matched ${library})
    set(target ${CMAKE_MATCH_1})
    set(folder ${CMAKE_MATCH_2})
    find_path(HEADERS_OF_${folder} ${folder} PATHS /usr/local/include /usr/include NO_DEFAULT_PATH
              NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    file(MAKE_DIRECTORY ${HEADER_LIBRARIES}/${folder})
    file(CREATE_LINK ${HEADERS_OF_${folder}}/${folder} ${HEADER_LIBRARIES}/${folder}/${folder} SYMBOLIC)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    target_include_directories(${target} SYSTEM INTERFACE ${HEADER_LIBRARIES}/${folder})
  endforeach()
  if(WIN32)
    # For Boost.Asio: the oldest Windows it is to run on, and the system's sockets.
    target_compile_definitions(Boost::headers INTERFACE _WIN32_WINNT=0x0601 NOMINMAX WIN32_LEAN_AND_MEAN)
    target_link_libraries(Boost::headers INTERFACE ws2_32 mswsock)
  endif()
endif()

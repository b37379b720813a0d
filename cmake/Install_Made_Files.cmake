# Run by `cmake --install`: the files of an installation that hold paths of it.
set(root "$ENV{DESTDIR}")
set(TESSARIN_BIN_DIR "${CMAKE_INSTALL_PREFIX}/bin")
set(TESSARIN_LIB_DIR "${CMAKE_INSTALL_PREFIX}/${lib_subdir}")
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(TESSARIN_CONF_DIR /etc/tessarin)
  set(unit_dir /lib/systemd/system)
else()
  set(TESSARIN_CONF_DIR "${CMAKE_INSTALL_PREFIX}/etc")
  set(unit_dir "${CMAKE_INSTALL_PREFIX}/lib/systemd/system")
endif()
set(as_data FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

configure_file("${source_dir}/deploy/svc.conf.in" "${root}${TESSARIN_CONF_DIR}/svc.conf" @ONLY ${as_data})
configure_file("${source_dir}/deploy/systemd/tessarin-agent.service.in" "${root}${unit_dir}/tessarin-agent.service"
  @ONLY ${as_data})

# Debian wants the changelog in a form of its own, compressed, and the same bytes from the same sources.
set(documents "${root}${CMAKE_INSTALL_PREFIX}/${doc_subdir}")
set(TESSARIN_VERSION "${version}")
configure_file("${source_dir}/deploy/deb/changelog.in" "${documents}/changelog" @ONLY ${as_data})
execute_process(COMMAND gzip -9nf "${documents}/changelog" COMMAND_ERROR_IS_FATAL ANY)

# What an installation consists of, and the Debian package made of it. Programs find their libraries relative to
# themselves, so that the tree may lie anywhere:
#
#   bin/ lib/tessarin/ etc/svc.conf share/doc/tessarin/ lib/systemd/system/
#
# Below /usr the configuration lies in /etc/tessarin, as everywhere in Debian.
include(GNUInstallDirs)

set(TESSARIN_LIB_SUBDIR "lib/tessarin")
set(TESSARIN_DOC_SUBDIR "share/doc/tessarin")

set_target_properties(tessarin-agent tessarinctl PROPERTIES INSTALL_RPATH "$ORIGIN/../${TESSARIN_LIB_SUBDIR}")
set_target_properties(k8s_sclient_plugin PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS tessarin-agent tessarinctl RUNTIME DESTINATION bin)
install(TARGETS tessarin k8s_sclient_plugin LIBRARY DESTINATION ${TESSARIN_LIB_SUBDIR}
  PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
install(DIRECTORY "${CMAKE_SOURCE_DIR}/doc/" DESTINATION ${TESSARIN_DOC_SUBDIR} FILES_MATCHING PATTERN "*.md")
install(FILES "${CMAKE_SOURCE_DIR}/deploy/deb/copyright" DESTINATION ${TESSARIN_DOC_SUBDIR})

# Files that hold paths are made when the prefix is known, which is not before the installation.
install(CODE "
  set(source_dir \"${CMAKE_SOURCE_DIR}\")
  set(version \"${PROJECT_VERSION}\")
  set(lib_subdir \"${TESSARIN_LIB_SUBDIR}\")
  set(doc_subdir \"${TESSARIN_DOC_SUBDIR}\")
  include(\"${CMAKE_SOURCE_DIR}/cmake/Install_Made_Files.cmake\")")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tessarin)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "Tessarin developers <tessarin@example.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Kubernetes support of a backup agent")
set(CPACK_PACKAGE_DESCRIPTION
  "An agent on each node finds the data of persistent volumes, binds it\nread-only and streams it to a storage pool as backup sets, and brings\nit back. Programs drive it by JSON-RPC, people by tessarinctl.")
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS ca-certificates)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  "${CMAKE_SOURCE_DIR}/deploy/deb/conffiles" "${CMAKE_SOURCE_DIR}/deploy/deb/postinst"
  "${CMAKE_SOURCE_DIR}/deploy/deb/prerm" "${CMAKE_SOURCE_DIR}/deploy/deb/postrm")
include(CPack)

# Install step of the reference host's data: its sample configuration, the
# configuration's stored digest and the library's (the default firmware
# image). Runs at install time, when CMAKE_INSTALL_PREFIX is the prefix
# being installed to: the prefix /usr (also <dir>/usr, as when packaging)
# keeps etc/ and var/ beside it, as GNU installations do; any other prefix
# holds them itself. fipsval reckons its default locations the same way.
# In: FIPSVAL_CONFIG, FIPSVAL_LIBRARY (the built library).
if(CMAKE_INSTALL_PREFIX MATCHES "^(.*)/usr/?$")
  set(root "${CMAKE_MATCH_1}")
else()
  string(REGEX REPLACE "/$" "" root "${CMAKE_INSTALL_PREFIX}")
endif()
set(config_dir "${root}/etc/fipsval")
set(data_dir "${root}/var/lib/fipsval")
get_filename_component(library_name "${FIPSVAL_LIBRARY}" NAME)

file(INSTALL DESTINATION "${config_dir}" TYPE FILE FILES "${FIPSVAL_CONFIG}")

# The digests are written in place (no file in the build tree, so that two
# installs can run at once).
file(SHA256 "${FIPSVAL_CONFIG}" config_digest)
file(SHA256 "${FIPSVAL_LIBRARY}" library_digest)
foreach(entry "vpn.cfg.sha256|${config_digest}  vpn.cfg"
              "firmware.sha256|${library_digest}  ${library_name}")
  string(REPLACE "|" ";" entry "${entry}")
  list(GET entry 0 name)
  list(GET entry 1 line)
  set(target "$ENV{DESTDIR}${data_dir}/${name}")
  message(STATUS "Installing: ${target}")
  file(WRITE "${target}" "${line}\n")
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${data_dir}/${name}")
endforeach()

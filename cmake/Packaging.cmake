# The Debian and RPM packages: "./run package". Paths are absolute, so both unpack to the same tree.
set(CPACK_GENERATOR DEB RPM)
set(CPACK_PACKAGE_NAME bayward)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "bayward")
set(BAYWARD_PACKAGE_CONTACT "bayward maintainers <bayward@tarn.example>" CACHE STRING
    "Who is named as the packages' maintainer")
set(CPACK_PACKAGE_CONTACT ${BAYWARD_PACKAGE_CONTACT})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "storage monitor for servers with an iLO controller")
set(CPACK_PACKAGE_DESCRIPTION
"bayward watches RAID controllers, logical drives and physical drives through
the server's iLO management controller and the vendors' RAID tools. It writes
clear messages to syslog when a drive fails, predicts its failure or wears
out, and when a logical drive goes offline: once per change.

It reads the controller over the network. The local in-band channel, which it
takes when no URL is configured, also needs the maker's Python library and its
native part; the RAID tools (ssacli, storcli64) come from the maker as well.")

# Two components in one package: the run-time folder, and what lies outside of it.
set(CPACK_INSTALL_CMAKE_PROJECTS
    "${CMAKE_BINARY_DIR};bayward;Unspecified;/"
    "${CMAKE_BINARY_DIR};bayward;system;/")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# What is packed has been built before; the tests need not be.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(packaging ${CMAKE_CURRENT_SOURCE_DIR}/packaging)

# Both removals end what was started by hand.
file(READ ${packaging}/end-runs END_RUNS)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${packaging}/end-runs)
foreach(script deb/prerm rpm/preun)
    configure_file(${packaging}/${script}.in ${CMAKE_BINARY_DIR}/packaging/${script} @ONLY)
endforeach()

# dmidecode: the key of the account files comes from the system's UUID. ip: the address of the virtual NIC.
# unzip: the Smart Array diagnostic report. The library of the embedded interpreter and OpenSSL are found by their
# names in the executables.
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "dmidecode, iproute2, unzip")
# locales writes the file that the language is read from.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "rsyslog | system-log-daemon, locales, kmod")
# python3-ilorest: the in-band channel, which also takes the maker's native library. Who names the controller's URL needs
# neither.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "python3-ilorest, bash-completion")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${packaging}/deb/conffiles
    ${packaging}/deb/postinst
    ${CMAKE_BINARY_DIR}/packaging/deb/prerm
    ${packaging}/deb/postrm)

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE "Proprietary")
set(CPACK_RPM_PACKAGE_GROUP "System Environment/Daemons")
# SUSE calls it iproute2.
set(CPACK_RPM_PACKAGE_REQUIRES "dmidecode, (iproute or iproute2), unzip")
set(CPACK_PACKAGE_RELOCATABLE OFF)
# The EUC-JP converter is in glibc-gconv-extra on Red Hat's systems, in glibc-locale on SUSE's. (CPack has no variable
# for what is only recommended; these lines stand at the top of the spec file.)
set(CPACK_RPM_SPEC_MORE_DEFINE "Recommends: rsyslog
Recommends: (glibc-gconv-extra or glibc-locale)
Recommends: kmod
Suggests: bash-completion
%define _build_id_links none")
set(CPACK_RPM_POST_INSTALL_SCRIPT_FILE ${packaging}/rpm/post)
set(CPACK_RPM_PRE_UNINSTALL_SCRIPT_FILE ${CMAKE_BINARY_DIR}/packaging/rpm/preun)
set(CPACK_RPM_POST_UNINSTALL_SCRIPT_FILE ${packaging}/rpm/postun)
set(CPACK_RPM_USER_FILELIST "%config(noreplace) %attr(0600,root,root) /etc/opt/tarn/bayward/bayward.conf")
# CPack takes every other file with an absolute path for configuration unless it is listed, too.
get_property(files GLOBAL PROPERTY BAYWARD_SYSTEM_FILES)
list(TRANSFORM files PREPEND "%attr(-,root,root) ")
list(APPEND CPACK_RPM_USER_FILELIST ${files})
# Folders that are the system's, not this package's.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
    /opt /etc /etc/opt /var /var/log /usr/lib /usr/lib/systemd /usr/lib/systemd/system /usr/sbin /usr/share
    /usr/share/bash-completion /usr/share/bash-completion/completions /usr/share/doc
    /usr/share/man /usr/share/man/man5 /usr/share/man/man8)

include(CPack)

# Where the packages put things, relative to the install prefix (/usr in the packages). The
# component has an unversioned soname that its framework opens by name, so it is a plugin in a
# private directory rather than a public library; what runs it off a node lies under one
# directory of its own.
set(QIV_COMPONENT_INSTALL_DIR lib/${CMAKE_LIBRARY_ARCHITECTURE}/qiv-access-mgmt)
set(QIV_OFFNODE_INSTALL_DIR lib/qiv-access-mgmt)
set(QIV_OFFNODE_BIN_DIR ${QIV_OFFNODE_INSTALL_DIR}/bin)
# The platform libraries amhost and the component link.
set(QIV_OFFNODE_PLATFORM_DIR ${QIV_OFFNODE_INSTALL_DIR}/platform)
# The node's programs and libraries keep the build tree's node/{bin,sbin,lib}.
set(QIV_OFFNODE_NODE_DIR ${QIV_OFFNODE_INSTALL_DIR}/node)
set(QIV_OFFNODE_FIXTURES_DIR ${QIV_OFFNODE_INSTALL_DIR}/fixtures)

# Sets out_var to path (relative to the prefix) as seen from the installed programs' directory.
function(qiv_path_from_offnode_bin out_var path)
  file(RELATIVE_PATH relative /${QIV_OFFNODE_BIN_DIR} /${path})
  set(${out_var} ${relative} PARENT_SCOPE)
endfunction()

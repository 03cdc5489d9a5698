#!/usr/bin/env bash
# The two Debian packages cpack makes from this build, unpacked with dpkg-deb into a root of their
# own: the unpacked amhost must answer the roles of a user through each way a node answers them
# (the qivea stand-in; the security framework's stand-ins; the component's own LDAP client next
# to slapd-instance), with the unpacked component and platform libraries, none from the build.
#   UnpackedPackagesTest.sh CPACK BUILD_DIR NSS_WRAPPER_LIBRARY
set -euo pipefail

cpack=$1
build=$(realpath "$2")
nss_wrapper=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# A time-out's signal must still run the EXIT trap.
trap 'exit 143' TERM
trap 'exit 130' INT

fail() {
  echo "FAIL: $*" >&2
  exit 1
}

"$cpack" --config "$build/CPackConfig.cmake" -B "$work/packages" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log" >&2; fail "cpack could not make the packages"; }

root=$work/root
shopt -s nullglob
for package in libqiv-access-mgmt qiv-access-mgmt-offnode; do
  files=("$work/packages/${package}_"*.deb)
  [ ${#files[@]} -eq 1 ] || fail "cpack made ${#files[@]} packages named $package"
  dpkg-deb -x "${files[0]}" "$root"
done
shopt -u nullglob
depends=$(dpkg-deb -f "$work/packages/qiv-access-mgmt-offnode_"*.deb Depends)
[[ "$depends" == "libqiv-access-mgmt (= "* ]] || fail "qiv-access-mgmt-offnode depends on: $depends"

prefix=$root/usr/lib/qiv-access-mgmt
component=$(find "$root" -name libqiv_access_mgmt.so)
[ -n "$component" ] || fail "no libqiv_access_mgmt.so among the unpacked files"

method=ManagedElement=1,SystemFunctions=1,SecM=1,UserManagement=1,LdapAuthenticationMethod=1
ldap=$method,Ldap=1
mkdir -p "$work/tmp" "$work/ld"
cp "$prefix/fixtures/models/ldap20.xml" "$work/model.xml" || fail "no model among the unpacked fixtures"

# run NAME EXPECTED [VARIABLE=VALUE...] -- COMMAND...: COMMAND with only the variables given (PATH
# the system's directories unless given), whose standard output must be EXPECTED; the dynamic
# loader records every object it loads under ld/NAME.
run() {
  local name=$1 expected=$2 variables=()
  shift 2
  while [ "$1" != -- ]; do
    variables+=("$1")
    shift
  done
  shift
  local status=0
  env -i TMPDIR="$work/tmp" PATH=/usr/sbin:/usr/bin:/sbin:/bin LD_DEBUG=files LD_DEBUG_OUTPUT="$work/ld/$name" \
    "${variables[@]}" "$@" >"$work/$name.out" 2>"$work/$name.err" || status=$?
  if [ $status -ne 0 ] || [ "$(cat "$work/$name.out")" != "$expected" ]; then
    echo "$name: status $status; expected on standard output:" >&2
    echo "$expected" >&2
    echo "got:" >&2
    cat "$work/$name.out" "$work/$name.err" >&2
    fail "$name"
  fi
}

# loaded NAME LIBRARY PATH: the processes of run NAME loaded LIBRARY, and only from PATH.
loaded() {
  local name=$1 library=$2 expected=$3 found=0 path
  while read -r path; do
    [ "${path##*/}" = "$library" ] || continue
    [ "$(realpath -m "$path")" = "$expected" ] || fail "$name: $library was loaded from $path, not from $expected"
    found=1
  done < <(sed -n 's/^[[:space:]]*[0-9]*:[[:space:]]*calling init: //p' "$work/ld/$name".*)
  [ $found -eq 1 ] || fail "$name: $library was not loaded"
  if grep -h 'calling init: ' "$work/ld/$name".* | grep -F "$build/"; then
    fail "$name: an object of the build tree was loaded"
  fi
}

# The qivea stand-in answers, as on a node without the security framework (README's "Try it").
mkdir -p "$work/qivea"
echo 'alice:admin,operator' >"$work/qivea/users"
run qivea $'started\ncommitted\nadmin\noperator' PATH="$prefix/node/bin:/usr/bin:/bin" QIVEA_HOME="$work/qivea" -- \
  "$prefix/bin/amhost" --model "$work/model.xml" --log-level -1 start ';' \
  set "$method" administrativeState UNLOCKED ';' set "$ldap" ldapIpAddress 192.0.2.10 ';' \
  set "$ldap" baseDn dc=operator,dc=example ';' commit ';' roles alice
loaded qivea libqiv_access_mgmt.so "$component"
loaded qivea libqiv_common.so "$prefix/platform/libqiv_common.so"
loaded qivea libqiv_ext_cm_router_service.so "$prefix/platform/libqiv_ext_cm_router_service.so"
[ -n "$(ls "$work/qivea/calls")" ] || fail "qivea recorded no call"

# A node with the security framework: amhost puts the unpacked acs-config-update first on PATH
# and loads the unpacked user-authorization library, which answers the query. The component
# wants the group "sec-uai-users", from a group database of the test's own (libnss-wrapper).
mkdir -p "$work/pso" "$work/acs" "$work/sec-acs" "$work/qivea-node"
echo 'alice:security-admin' >"$work/sec-acs/users"
printf 'root:x:0:0:root:/root:/bin/sh\nnobody:x:65534:65534:nobody:/nonexistent:/bin/false\n' >"$work/passwd"
printf 'root:x:0:\nnogroup:x:65534:\nsec-uai-users:x:4242:\n' >"$work/group"
run node $'started\ncommitted\nsecurity-admin' LD_PRELOAD="$nss_wrapper" NSS_WRAPPER_PASSWD="$work/passwd" \
  NSS_WRAPPER_GROUP="$work/group" QIVEA_HOME="$work/qivea-node" ACS_CONFIG_UPDATE_HOME="$work/acs" \
  SEC_ACS_HOME="$work/sec-acs" -- \
  "$prefix/bin/amhost" --model "$work/model.xml" --log-level -1 --security-framework "$work/pso" \
  start ';' set "$ldap" ldapIpAddress 192.0.2.11 ';' commit ';' roles alice
loaded node libqiv_access_mgmt.so "$component"
loaded node libsec_acs_api.so.1 "$prefix/node/lib/libsec_acs_api.so.1"
grep -q -- --register "$work/acs/calls/"* || fail "acs-config-update recorded no registration"

# The component's own LDAP client, next to the throw-away directory of the unpacked
# slapd-instance and its fixtures.
echo '<QivAccessManagementComponent useBuiltInAuthorization="true" ldapInitConfigTimeout="30"/>' >"$work/builtin.xml"
run directory $'started\ncommitted\nadmin\nops' PATH="$prefix/node/bin:/usr/bin:/bin" QIVEA_HOME="$work/qivea" -- \
  "$prefix/bin/slapd-instance" run -- sh -c '"$0" --model "$1" --component-config "$2" --log-level -1 start ";" \
    set "$3" serverPort "$LDAP_PLAIN_PORT" ";" set "$3" ldapIpAddress 127.0.0.1 ";" \
    set "$3" baseDn "$LDAP_BASE_DN" ";" unset "$3" bindDn ";" commit ";" roles alice' \
  "$prefix/bin/amhost" "$work/model.xml" "$work/builtin.xml" "$ldap"
loaded directory libqiv_access_mgmt.so "$component"
echo "the unpacked packages answered through qivea, the security framework and the directory"

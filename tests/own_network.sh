#!/bin/sh
# Runs a command in a network namespace of its own, so that tests can run side by side although they use the same ports
# and DDS topics. Root needs CAP_SYS_ADMIN; another user needs unprivileged user namespaces.
# usage: own_network.sh COMMAND [ARGUMENT]...
flags=-n
[ "$(id -u)" -eq 0 ] || flags=-rn
exec unshare $flags sh -c 'ip link set lo up && exec "$@"' sh "$@"

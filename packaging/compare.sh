#!/bin/sh
# Compares what a component brought, or '*' all, with packaging/contents:
# compare.sh COMPONENT PREFIX LIBDIR VERSION
set -eu
export LC_ALL=C
contents=$(dirname "$0")/contents
(cd "$2" && find . ! -type d | sed 's#^\./##' | sort) >"$2.found"
# shellcheck disable=SC2086
sed "s#@LIBDIR@#$3#; s#@VERSION@#$4#" "$contents"/$1.txt | sort | diff -u - "$2.found"

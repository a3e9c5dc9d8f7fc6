#!/bin/sh
# pip installs the package from the checkout, without a network; it finds what lies in a prefix:
# pip.sh PYTHON SOURCE PREFIX LIBDIR WORK
set -eu
python=$1 source=$2 prefix=$3 libraries=$3/$4 work=$5
rm -rf "$work"
"$python" -m pip install --quiet --no-index --disable-pip-version-check --root-user-action=ignore \
    --target "$work" "$source/python"
cd "$work"
PATH=$prefix/bin:$PATH LD_LIBRARY_PATH=$libraries:$libraries/libkv-simulator PYTHONPATH=$work \
    "$python" - <<'END'
from vexo_cmi import pdh_admin_get
from vexo_cmi.gateway import Gateway

gateway = Gateway()
with gateway.agent("vexoctl pdh admin set port=3 status=1"):
    assert pdh_admin_get(3) == 1
assert [call.name for call in gateway.trace] == ["pdh_admin_set"]
assert gateway.changes() == "pdh 3 adminStatus: - 2 + 1\n"
gateway.end()
END

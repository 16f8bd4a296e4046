# shellcheck shell=bash
# What the scripts share that run the simulated notebook (notebook/runner).

# Modules that happen to lie beside the caller are not ours.
export PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$LINKVANE_ROOT PYTHONSAFEPATH=1

# build_notebook: sets up and builds all that runs on a notebook.
build_notebook() {
    "$LINKVANE_ROOT/scripts/setup"
    build_preset cross LinkvaneService notebook notebook_hardware notebook_proxies notebook_stub_service
    build_preset native LinkvaneDoctor
}

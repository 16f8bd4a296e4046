# shellcheck shell=bash
# Configuring and building one of the presets.

# build_preset PRESET [TARGET...]: configures what was never configured (the build files renew
# themselves afterwards) and builds.
build_preset() {
    local preset=$1
    shift
    cd "$LINKVANE_ROOT" || return
    if [[ ! -f build/$preset/build.ninja ]]; then
        step "Configure ($preset)"
        cmake --preset "$preset" >/dev/null || return
        say "Build files are in build/$preset."
    fi
    step "Build ($preset)"
    cmake --build --preset "$preset" ${1+--target "$@"}
}

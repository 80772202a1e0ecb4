# Sourced by the scripts that build: one way to configure and build a preset.

# A command that the build and the tests are run through; empty for none.
runner=()

# build_preset NAME [TARGET...]: configures and builds the preset in build/NAME, with every core. Tests
# that run beside it go first.
build_preset() {
  local preset=$1 launcher=()
  shift
  if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  fi
  cmake --preset "$preset" "${launcher[@]}" &&
    "${runner[@]}" nice cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

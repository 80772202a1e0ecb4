# Sourced by scripts/test: the static checks of what is shipped.

analysis_folder=build/analysis

# Each prints its findings and fails when there is one.

# Several sources at a time, which share what they include: half the time.
check_with_clang_tidy() {
  local folder=$analysis_folder/together
  cmake --preset analysis -B "$folder" -DCMAKE_UNITY_BUILD=ON >"$folder.log" || return 1
  # Besides the findings it prints every command line.
  run-clang-tidy -quiet -p "$folder" -j "$(nproc)" >"$analysis_folder/clang-tidy.log" 2>&1 || {
    grep -vE '^clang-tidy|warnings? (generated|treated as errors?)|^$' "$analysis_folder/clang-tidy.log"
    return 1
  }
}

check_with_cppcheck() {
  cppcheck --quiet --error-exitcode=1 -j "$(nproc)" \
    --project="$analysis_folder/compile_commands.json" --enable=warning,performance,portability \
    --template='{file}:{line}: {message} [{id}]'
}

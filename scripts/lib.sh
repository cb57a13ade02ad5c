# SPDX-License-Identifier: Apache-2.0
# Shared by ./check and ./demo: progress with elapsed seconds, quiet builds.
# The caller sets `me` to its name and stands in the root of the tree.

startSeconds=$SECONDS

say() { printf '%s: [%4d s] %s\n' "$me" "$(( SECONDS - startSeconds ))" "$*"; }

# As many compilations at once as there are cores, and memory for (some 1.5 GB each).
jobCount() {
   local cores memory
   cores=$( nproc )
   memory=$( awk '/^MemAvailable:/ { print int( $2 / 1500000 ) }' /proc/meminfo 2>/dev/null || true )
   [[ -n $memory ]] || memory=$cores
   (( memory >= 1 )) || memory=1
   echo "$(( cores < memory ? cores : memory ))"
}

# quietly LOG COMMAND...: the output goes to LOG; on failure its end is shown.
quietly() {
   local log=$1
   shift
   if ! "$@" >"$log" 2>&1 </dev/null; then
      grep -nE 'error|FAILED|Error' "$log" | head -n 20 >&2 || true
      echo "---- last lines of $log" >&2
      tail -n 40 "$log" >&2
      return 1
   fi
}

# build PRESET [TARGET...]: configures and builds, telling how far it is now and then.
build() {
   local preset=$1 dir=build/$1 targets=()
   shift
   (( $# == 0 )) || targets=( --target "$@" )
   mkdir -p "$dir"
   quietly "$dir/configure.log" cmake --preset "$preset" "${configureOptions[@]}" || return 1
   NINJA_STATUS='[%f/%t] ' cmake --build --preset "$preset" -j "$( jobCount )" "${targets[@]}" \
      2>&1 </dev/null | tee "$dir/build.log" | progress "$preset"
}

# Passes on what a compiler says, and of ninja's own lines one every 30 seconds.
progress() {
   local line shown=$SECONDS
   while IFS= read -r line; do
      if [[ $line == '['*/*']'* ]]; then
         if (( SECONDS - shown >= 30 )); then
            say "$1: ${line%%]*}]"
            shown=$SECONDS
         fi
      else
         [[ $line == 'ninja: no work to do.' ]] || printf '%s\n' "$line"
      fi
   done
}
configureOptions=()

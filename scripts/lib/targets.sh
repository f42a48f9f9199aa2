# Shared by scripts/cross-test and scripts/release: installing a target's
# Debian packages, and a wine prefix of a build's own. Sourced, not run.

# qvt_install ARCH PACKAGE...: installs what is missing, adding the foreign
# architecture ARCH ("" for none) first. Returns non-zero when apt fails,
# having left apt as it was.
qvt_install() {
  local arch=$1 sudo="" package added="" attempt
  shift
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  local missing=()
  # Builds may run side by side (CI does): one installs at a time, as apt
  # allows, and the next sees what the first brought.
  exec 9>"${TMPDIR:-/tmp}/qvt-cross-test.lock"
  flock 9
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' \
      || missing+=("$package")
  done
  if ((${#missing[@]})); then
    if [ -n "$arch" ] && [ "$arch" != "$(dpkg --print-architecture)" ] \
       && ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
      $sudo dpkg --add-architecture "$arch"
      added=$arch
    fi
    # A mirror caught mid-sync fails the update for a while: try again.
    for attempt in 1 2 3; do
      $sudo apt-get update -q && break
      sleep 30
    done
    if ! DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends \
           "${missing[@]}"; then
      # Leave apt as it was: a foreign architecture whose lists are out of
      # step with the native ones fails every later update.
      [ -z "$added" ] || { $sudo dpkg --remove-architecture "$added"; $sudo apt-get update -q || true; }
      exec 9>&-
      return 1
    fi
  fi
  exec 9>&-
}

# qvt_wine_start BUILD [win32]: a prefix in BUILD/wine. One wineserver and
# wine's services stay up for the whole run, started here with their output
# away from CTest's pipes, which they would otherwise hold open past the
# test's end. qvt_wine_stop ends them.
qvt_wine_start() {
  export WINEPREFIX=$PWD/$1/wine WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
  if [ "${2:-}" = win32 ]; then export WINEARCH=win32; else unset WINEARCH; fi
  mkdir -p "$1"
  wineserver -p 2>/dev/null || true  # or one is up already
  wineboot >/dev/null 2>&1
}
qvt_wine_stop() {
  wineserver -k 2>/dev/null || true
}

# Under wine a case's process now and then ends at start, with no output,
# when the machine is busy (CI runs memcheck beside it): such a case gets
# one more run. A case that fails by its own checks fails both.
qvt_wine_retry=(--repeat until-pass:2)

# Sourced by the test scripts: starts a private X server for the renderer's
# tests on the first free display from :90, exports DISPLAY, and stops it when
# the calling shell exits.
xvfb_pid=""
start_xvfb() {
  local n
  for n in $(seq 90 120); do
    [[ -e /tmp/.X11-unix/X$n || -e /tmp/.X$n-lock ]] && continue
    Xvfb :$n -screen 0 "${XVFB_SCREEN:-1280x1024x24}" -nolisten tcp -noreset >/dev/null 2>&1 &
    xvfb_pid=$!
    for _ in $(seq 50); do [[ -e /tmp/.X11-unix/X$n ]] && break; sleep 0.1; done
    export DISPLAY=:$n
    return 0
  done
  echo "no free display for Xvfb"
}
trap '[[ -n "$xvfb_pid" ]] && kill "$xvfb_pid" 2>/dev/null' EXIT

# Sourced by the scripts that run whole jobs side by side with other programs.

# Runs a command and prints "SECONDS MEGABYTES", its wall time and peak memory.
measure() {
  python3 - "$@" <<'PYTHON'
import os, subprocess, sys, time
start = time.monotonic()
process = subprocess.Popen(sys.argv[1:], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
complaint = process.stderr.read()
_, status, usage = os.wait4(process.pid, 0)
if status != 0:
    sys.exit(complaint.decode(errors="replace"))
print(f"{time.monotonic() - start:.1f} {usage.ru_maxrss / 1024:.0f}")
PYTHON
}

# One line of a table: row NAME COMMAND...
row() {
  local name=$1
  shift
  read -r seconds megabytes < <(measure "$@")
  echo "| $name | $seconds | $megabytes |"
}

# Sourced by the scripts that compare whole jobs with other programs.

# Runs a command and prints "SECONDS MEGABYTES CPU": its wall time, the peak memory of its largest process, and the
# seconds of all cores together.
measure() {
  python3 - "$@" <<'PYTHON'
import os, subprocess, sys, time
start = time.monotonic()
process = subprocess.Popen(sys.argv[1:], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
errors = process.stderr.read()
_, status, usage = os.wait4(process.pid, 0)
if status != 0:
    sys.exit(errors.decode(errors="replace"))
seconds = time.monotonic() - start
print(f"{seconds:.1f} {usage.ru_maxrss / 1024:.0f} {usage.ru_utime + usage.ru_stime:.1f}")
PYTHON
}

# One line of a table: row NAME COMMAND...
row() {
  local name=$1
  shift
  read -r seconds megabytes _ < <(measure "$@")
  echo "| $name | $seconds | $megabytes |"
}

# need SCRIPT PROGRAM...: ends the script unless all programs are installed.
need() {
  local script=$1 program
  shift
  for program in "$@"; do
    command -v "$program" >/dev/null || { echo "$script: $program is missing; see --help" >&2; exit 1; }
  done
}

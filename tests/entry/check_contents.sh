#!/bin/sh
# The module holds none of the system calls that only the stand-ins, tests and benchmarks make:
# check_contents.sh MODULE LAYER...
# A plug-in that patches import tables, lists threads or starts programs is what virus scanners look
# for. LAYER are the libraries that the module is linked from: the compiler's runtime makes some of
# these calls itself, so that only there can be seen who does.
set -eu
module=$1
shift
ours='LoadModule|LoadedModule|AnswerKnownFolder|ReplaceImport|ConnectTcp|OpenDatagramReceiver|OpenRunReceiver|TcpPortInUse'
ours="$ours|ReadStreamSettings|StartProcess|RunAs|ChildProcess|SetEnvironment|ProcessCpuSeconds"
ours="$ours|CountProcessResources|InstallInterruptFlag|StandardOutputIsTerminal|QuotedArgument"
windows='VirtualProtect|CreateToolhelp32Snapshot|Thread32First|Thread32Next|CreateProcessW'
windows="$windows|TerminateProcess|SetConsoleCtrlHandler|GetProcessTimes|GetProcessHandleCount"
posix='posix_spawn|execv|waitpid|getrusage|setenv|unsetenv'
bad=0
complain() { # what, names
  [ -z "$2" ] && return
  printf '%s:\n%s\n' "$1" "$2" >&2
  bad=1
}

if od -An -tx1 -N2 "$module" | grep -q '4d 5a'; then
  nm=x86_64-w64-mingw32-nm
  calls=$windows
  complain 'The module imports' "$(x86_64-w64-mingw32-objdump -p "$module" |
    grep -oE '\b(CreateToolhelp32Snapshot|Thread32First|Thread32Next|CreateProcessW|SetConsoleCtrlHandler)\b' || true)"
else
  nm=nm
  calls=$posix
fi
names=$($nm -C "$module")
# Without names there would be nothing to find.
printf '%s\n' "$names" | grep -q 'Veldrift::PluginLog' ||
  { echo "$module has no names to look at" >&2; exit 1; }
complain 'The module holds' "$(printf '%s\n' "$names" | grep -E "Veldrift::.*\\b($ours)\\b" || true)"
for layer in "$@"; do
  complain "$layer calls" "$($nm -u "$layer" | grep -E "\\b_*(imp_)?($calls)\\b" || true)"
done
# What the block code would print on the user's terminal.
complain 'The module says' "$(grep -ao 'gf256_ctx::gf256_init_: [a-z]*' "$module" || true)"
exit $bad

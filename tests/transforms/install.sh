#!/bin/sh
# Puts the scripted encoders into the Wine prefix of the environment (WINEPREFIX and what else Wine
# reads; WINE is the command, "wine" by itself): install.sh BIN MODULE (the Windows build's programs;
# the module's file). To be run again when one of them has changed.
set -eu
bin=$1
module=$2
wine=${WINE:-wine}
system=$WINEPREFIX/drive_c/windows/system32
[ -f "$system/mfplat_wine.dll" ] || mv "$system/mfplat.dll" "$system/mfplat_wine.dll"
cp "$bin/mfplat-shim/mfplat.dll" "$system/mfplat.new"
mv "$system/mfplat.new" "$system/mfplat.dll"
"$wine" reg add 'HKCU\Software\Wine\DllOverrides' /v mfplat /d native /f </dev/null
"$wine" "$bin/register_transforms.exe" add "Z:$(echo "$module" | tr / '\\')" </dev/null

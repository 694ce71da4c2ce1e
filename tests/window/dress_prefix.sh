#!/bin/sh
# Gives the Wine prefix of the window tests the fonts that Windows has, or rather others of nearly the
# same widths, and frames around its windows: dress_prefix.sh PREFIX. Does nothing where that has been
# done.
set -eu
here=$(CDPATH= cd "$(dirname "$0")/../.." && pwd)
prefix=$1
wanted=$(cat "$here/tests/window/dress_prefix.sh" "$here/tests/window/make_icon_font.py" | cksum)
[ "$(cat "$prefix/dressed" 2>/dev/null)" = "$wanted" ] && exit 0

export VD_WINEPREFIX="$prefix"
set_value() { "$here/cmake/run-wine" reg add "$1" /v "$2" /t "$3" /d "$4" /f </dev/null; }
replacements='HKCU\Software\Wine\Fonts\Replacements'
links='HKLM\Software\Microsoft\Windows NT\CurrentVersion\FontLink\SystemLink'

/usr/bin/python3 "$here/tests/window/make_icon_font.py" \
  "$prefix/drive_c/windows/Fonts/veldrift-test-icons.ttf"
# Wine's own, for the frames: their buttons are letters of it.
cp /usr/share/wine/fonts/marlett.ttf /usr/share/wine/fonts/tahoma*.ttf \
  "$prefix/drive_c/windows/Fonts/"
set_value "$replacements" 'Segoe UI' REG_SZ 'Open Sans'
set_value "$replacements" 'Consolas' REG_SZ 'Hack'
set_value "$replacements" 'Segoe Fluent Icons' REG_SZ 'Veldrift Test Icons'
# What those lack, arrows and triangles, comes from elsewhere, as it does on Windows.
for family in 'Segoe UI' 'Open Sans' 'Consolas' 'Hack'; do
  set_value "$links" "$family" REG_MULTI_SZ 'DejaVuSans.ttf,DejaVu Sans'
done
# Without a window manager Wine draws the frames itself, and waits for nobody.
set_value 'HKCU\Software\Wine\X11 Driver' Managed REG_SZ N
WINEPREFIX=$prefix wineserver -k || true # the next one reads it
WINEPREFIX=$prefix wineserver -w || true
echo "$wanted" >"$prefix/dressed"

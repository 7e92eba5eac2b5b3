#!/usr/bin/env bash
# Starts the real program under Xvfb, drives it with the keyboard and mouse as a user would
# (xdotool), and saves PNG screenshots of its states into the given folder (default docs/screenshots):
#   1-sem-container.png   the window with no container
#   2-bloqueado.png       a locked container selected
#   3-desbloqueado.png    an unlocked vault with folders and files of several types
#   4-sobre.png           the About dialog
#   5-ajuda.png           the Help dialog
#   6-importando.png      the import progress dialog
#   7-confirmacao.png     a confirmation box (deleting a file)
#   8-mover.png           the move dialog
#   9-alterar-senha.png   the change-password dialog
#   10-importar-pasta.png the "Arquivos protegidos" submenu with "Importar pasta..." highlighted
#   11-soltando-pasta.png a folder dropped from another program, its import under way
# Needs xvfb, xdotool and imagemagick; builds the program first.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath -m "${1:-$root/docs/screenshots}")
build="$root/build"
mkdir -p "$out"

for tool in xvfb-run xdotool import; do
    if ! command -v "$tool" >/dev/null 2>&1; then
        echo "Falta $tool: instale xvfb, xdotool e imagemagick." >&2
        exit 1
    fi
done

make -C "$root" build >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
password="senha-de-demonstracao"
"$build/scripts/demo/velmarin-demo-vault" "$work/velmarin.vltx" "$password"
# Large enough for the import progress dialog to stay up for a screenshot.
head -c 600M /dev/urandom >"$work/video-das-ferias.mp4"
# The folder dropped on the window: photos, a note and the same video, linked to save the room.
mkdir -p "$work/Viagem ao Nordeste/Fotos" "$work/Viagem ao Nordeste/Vídeos"
for number in $(seq 1001 1040); do
    head -c 200K /dev/urandom >"$work/Viagem ao Nordeste/Fotos/IMG_$number.jpg"
done
echo "Recife, Olinda, Porto de Galinhas" >"$work/Viagem ao Nordeste/roteiro.txt"
ln "$work/video-das-ferias.mp4" "$work/Viagem ao Nordeste/Vídeos/praia.mp4"

cat >"$work/session.sh" <<SESSION
#!/usr/bin/env bash
set -euo pipefail
export HOME="$work" LANG=pt_BR.UTF-8
"$build/app/velmarin" &
app=\$!
shot() { sleep 1.5; import -window root "$out/\$1"; }
window=""
for _ in \$(seq 50); do
    window=\$(xdotool search --onlyvisible --name '^Velmarin\$' 2>/dev/null | head -n1 || true)
    [[ -n "\$window" ]] && break
    sleep 0.2
done
xdotool windowfocus --sync "\$window"
shot 1-sem-container.png

# Escolher container... (Ctrl+O): type the path into the file dialog.
xdotool windowfocus --sync "\$window"
xdotool key ctrl+o
sleep 1.5
xdotool type --delay 20 "$work/velmarin.vltx"
xdotool key Return
shot 2-bloqueado.png

# Desbloquear (Ctrl+L) with the demonstration password. Xvfb has no window manager to give the
# prompt the keyboard, so it is focused by its title.
xdotool windowfocus --sync "\$window"
xdotool key ctrl+l
sleep 1.5
prompt=\$(xdotool search --onlyvisible --name '^Senha do cofre\$' | head -n1)
xdotool windowfocus --sync "\$prompt"
xdotool type --delay 20 "$password"
xdotool key Return
sleep 3
xdotool windowfocus --sync "\$window"
shot 3-desbloqueado.png

# Sobre > Sobre o Velmarin, then Sobre > Ajuda, through the menu bar.
open_about_menu() { xdotool mousemove --window "\$window" 110 10 click 1; sleep 0.8; }
open_about_menu
xdotool key Up Return
shot 4-sobre.png
xdotool key Escape
sleep 0.5
open_about_menu
xdotool key Down Return
shot 5-ajuda.png
xdotool key Escape
sleep 0.5

# Importar... (Ctrl+I) a large file, caught while the progress dialog is up.
xdotool windowfocus --sync "\$window"
xdotool key ctrl+i
sleep 1.5
xdotool type --delay 20 "$work/video-das-ferias.mp4"
xdotool key Return
sleep 2
import -window root "$out/6-importando.png"
for _ in \$(seq 100); do
    xdotool search --onlyvisible --name '^Importar arquivos\$' >/dev/null 2>&1 || break
    sleep 0.3
done
sleep 1

# Select a row by clicking it, then Excluir... (Delete): the confirmation box.
xdotool windowfocus --sync "\$window"
xdotool mousemove --window "\$window" 300 294 click 1
sleep 0.5
xdotool key Delete
shot 7-confirmacao.png
xdotool key Escape
sleep 0.5

# The same row's context menu: Abrir, Exportar..., Mover para pasta...
xdotool mousemove --window "\$window" 300 294 click 3
sleep 0.8
xdotool key Down Down Down Return
shot 8-mover.png
xdotool key Escape
sleep 0.5

# USB > Acesso ao cofre > Arquivos protegidos, from the keyboard, down to "Importar pasta...".
xdotool windowfocus --sync "\$window"
xdotool mousemove --window "\$window" 82 10 click 1
sleep 0.8
xdotool key Down Down Down Right
sleep 0.5
xdotool key Down Right
sleep 0.5
xdotool key Down Down
shot 10-importar-pasta.png
xdotool key Escape Escape Escape Escape
sleep 0.5

# A folder dragged from another program (velmarin-demo-drag stands in for the file manager) and
# dropped on the table's empty rows, caught while its import is under way.
"$build/scripts/demo/velmarin-demo-drag" "$work/Viagem ao Nordeste" &
drag=\$!
source=""
for _ in \$(seq 50); do
    source=\$(xdotool search --onlyvisible --name '^Arquivos\$' 2>/dev/null | head -n1 || true)
    [[ -n "\$source" ]] && break
    sleep 0.2
done
xdotool windowmove "\$source" 930 180
sleep 0.5
xdotool mousemove 1090 260 mousedown 1
sleep 0.3
for x in 1050 1000 950 900 850 800 700 600 500 450; do
    xdotool mousemove "\$x" 480
    sleep 0.1
done
xdotool mouseup 1
sleep 0.6
import -window root "$out/11-soltando-pasta.png"
for _ in \$(seq 100); do
    xdotool search --onlyvisible --name '^Importar arquivos\$' >/dev/null 2>&1 || break
    sleep 0.3
done
kill \$drag 2>/dev/null || true
sleep 1

# Lock (Ctrl+Shift+L), then Alterar senha... (Ctrl+P).
xdotool windowfocus --sync "\$window"
xdotool key ctrl+shift+l
sleep 1.5
xdotool key ctrl+p
shot 9-alterar-senha.png
xdotool key Escape
sleep 0.5

# Closing locks the vault.
xdotool windowfocus --sync "\$window"
xdotool key ctrl+q
for _ in \$(seq 50); do
    kill -0 \$app 2>/dev/null || break
    sleep 0.2
done
kill \$app 2>/dev/null || true
SESSION
chmod +x "$work/session.sh"
xvfb-run -a -s "-screen 0 1280x800x24" "$work/session.sh"
echo "Capturas em $out:"
ls -1 "$out"

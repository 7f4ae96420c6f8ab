# Sourced by install and uninstall, after places.sh: what of an installation is ours, and how a run
# that was cut short is mended.
# shellcheck shell=sh
#
# A run may end at any command. Therefore: what is new is made beside its place and gets its name by
# one rename; what is written is noted before; notes are deleted last. The notes lie in the program
# directory and share its fate:
#   program-files     the names of its files
#   installed-files   "<SHA-256> <file>" or "link <file>" for what lies elsewhere; "~/" is the home
#   made-directories  the directories that were missing
# and, while a run lasts, in the lock: the directories that it made.

# written <path>: as it stands in the notes, in $name; a home that is renamed keeps its notes.
written() {
    case $1 in
        "$home"/*) name="~/${1#"$home"/}" ;;
        *) name=$1 ;;
    esac
}
# meant <path in the notes>: where that is now, in $file.
meant() {
    case $1 in
        "~/"*) file=$home/${1#"~/"} ;;
        *) file=$1 ;;
    esac
}

is_installation() { [ -f "$1/installed-files" ]; }
is_empty() { [ -z "$(find "$1" -mindepth 1 -maxdepth 1 2>/dev/null | head -n 1)" ]; }

# Of all notes there are: records, a line "<mark> <path>" for each file outside of the program, and
# directories. What the files are now is digested once.
read_notes() {
    records=
    directories=
    [ ! -f "$lock" ] || directories=$(cat -- "$lock")
    for notes in "$place" "$stage" "$old"; do
        [ -d "$notes" ] || continue
        renamed_from=
        read_records "$notes/installed-files"
        read_directories "$notes/made-directories"
    done
    set --
    while IFS=' ' read -r _ file; do
        if [ -f "$file" ] && [ ! -L "$file" ]; then set -- "$@" "$file"; fi
    done <<END
$records
END
    digests=
    # Told apart by NUL, names are not quoted.
    [ $# -eq 0 ] || digests=$(sha256sum -z -- "$@" | tr '\0' '\n')
}

read_records() {
    [ -f "$1" ] || return 0
    while IFS= read -r line; do
        case $line in
            # Installers of 1.0.16 and before noted paths alone, the command's link last.
            */.local/bin/tessellan-launcher)
                case $line in /*) renamed_from=${line%/.local/bin/tessellan-launcher} ;; esac ;;
        esac
    done <"$1"
    while IFS= read -r line; do
        case $line in
            /*) mark=unmarked && file=$line && follow_home ;;
            *) mark=${line%% *} && meant "${line#* }" ;;
        esac
        records=$records$mark\ $file$line_break
    done <"$1"
}
read_directories() {
    [ -f "$1" ] || return 0
    while IFS= read -r line; do
        meant "$line"
        case $line in /*) follow_home ;; esac
        directories=$directories$line_break$file
    done <"$1"
}
# A path in notes of a home that had another name then.
follow_home() {
    case ${renamed_from:+$file} in "${renamed_from:-}"/*) file=$home${file#"$renamed_from"} ;; esac
}

# is_ours <path>: whether it is noted, and still what was written there. Anything else is the
# player's, whatever its name.
is_ours() {
    [ -e "$1" ] || [ -L "$1" ] || return 1
    if [ -L "$1" ]; then
        case $line_break$records in *"${line_break}link $1$line_break"* | *"${line_break}unmarked $1$line_break"*) ;; *) return 1 ;; esac
        case $(readlink -- "$1") in */.local/lib/tessellan-launcher/tessellan-launcher) return 0 ;; esac
        return 1
    fi
    digest=$line_break$digests$line_break
    digest=${digest%%"  $1$line_break"*}
    digest=${digest##*"$line_break"}
    case $line_break$records in
        *"$line_break$digest $1$line_break"*) return 0 ;;
        *"${line_break}unmarked $1$line_break"*) ;;
        *) return 1 ;;
    esac
    # Without a digest a desktop entry tells by what it starts.
    case $1 in
        *.desktop) grep -q '^Exec="[^"]*/\.local/lib/tessellan-launcher/tessellan-launcher"$' "$1" ;;
    esac
}

# new_name <path>: under which name a file waits beside its place, in $waiting.
new_name() { waiting=${1%/*}/.${1##*/}.tessellan-new; }

# Removes what is noted, is ours, and is not among the paths in $1 (each between line breaks).
remove_noted() {
    while IFS=' ' read -r _ file; do
        [ -n "$file" ] || continue
        new_name "$file"
        if [ -e "$waiting" ] || [ -L "$waiting" ]; then rm -f -- "$waiting"; fi
        case $1 in *"$line_break$file$line_break"*) continue ;; esac
        if is_ours "$file"; then
            rm -f -- "$file"
        elif [ -e "$file" ] || [ -L "$file" ]; then
            note "$file has been changed and stays"
        fi
    done <<END
$records
END
}

remove_directories() {
    # Children before parents; those that hold something else by now stay.
    printf '%s\n' "$directories" | sort -ru | while IFS= read -r directory; do
        [ ! -d "$directory" ] || rmdir -- "$directory" 2>/dev/null || true
    done
}

# make_directory <path>: with its parents; noted first, so that they are removed again one day.
make_directory() {
    [ ! -d "$1" ] || return 0
    [ ! -L "$1" ] || fail "$1 is a link that leads nowhere"
    make_directory "${1%/*}"
    directories=$directories$line_break$1
    printf '%s\n' "$1" >>"$lock"
    mkdir -- "$1"
}

# The files of a program directory that an installer or the launcher's updates put there: those
# noted, and those that a full update brings, or an installer that kept no notes.
our_files() {
    (
        cd -- "$1" || exit
        {
            [ ! -f program-files ] || find . -type f | LC_ALL=C grep -axFf program-files
            find . -type f | LC_ALL=C grep -axE "$brought_by_updates"
        } | LC_ALL=C grep -avxE '\./(program|installed)-files' | sort -u
    )
}
brought_by_updates='\./(tessellan-launcher(\.new|-trial)?|uninstall|qt\.conf|made-directories'
brought_by_updates=$brought_by_updates'|lib[^/]*\.so[^/]*|plugins/[^/]+/lib[^/]*\.so'
brought_by_updates=$brought_by_updates'|licenses/(common-licenses/[^/]*|[^/]*\.txt)'
brought_by_updates=$brought_by_updates'|setup/(exchange|system-libraries|[a-z]*\.sh))'

# clear_away <directory>: deletes a program directory that is not in use. What a player had put into
# it is kept beside it. The notes go last: until then, whoever starts again knows what is whose.
clear_away() {
    [ -d "$1" ] && [ ! -L "$1" ] || return 0
    # An archive may come from a medium that nobody writes on.
    chmod -R u+rwX -- "$1"
    our_files "$1" | tr '\n' '\0' | (cd -- "$1" && xargs -0 rm -f --)
    find "$1" -depth -mindepth 1 -type d -exec rmdir -- {} + 2>/dev/null || true
    if [ -z "$(cd -- "$1" && find . ! -type d ! -path ./program-files ! -path ./installed-files | head -n 1)" ]; then
        rm -rf -- "$1"
        return
    fi
    kept=$place.kept
    while [ -e "$kept" ] || [ -L "$kept" ]; do kept=$kept+; done
    rm -f -- "$1/program-files" "$1/installed-files"
    mv -T -- "$1" "$kept"
    note "what had been put into the launcher's directory is kept in $kept"
}

# Where directories cannot be exchanged, a run may have ended between its two renames.
put_back() {
    if [ ! -e "$place" ] && is_installation "$old"; then mv -T -- "$old" "$place"; fi
}

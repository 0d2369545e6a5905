# Sourced by the scripts that need a Debian 12 of their own to try things in.

# Where this system gets Debian 12 from; nothing if apt cannot tell.
debian_mirror() {
    apt-get indextargets --format "\$(SITE)" \
        "Created-By: Packages" "Origin: Debian" "Codename: bookworm" | sort -u | head -n 1
}

# make_root FOLDER COMMAND...: installs a minimal system there, unless one is there already; one that
# was not completed is made anew. COMMAND is debootstrap with its options, and what comes before it.
# The system takes the release alone, without its updates: all of its packages are then of one age,
# whatever the state of a mirror's updates.
make_root() {
    local folder=$1 mirror
    shift
    [ ! -e "$folder/complete" ] || return 0
    echo "Making a Debian 12 in $folder"
    rm -rf --one-file-system "$folder"
    mkdir -p "$folder"
    mirror=$(debian_mirror)
    "$@" --variant=minbase bookworm "$folder" ${mirror:+"$mirror"} >"$folder.log" ||
        { tail -n 20 "$folder.log" >&2; exit 1; }
    touch "$folder/complete"
}

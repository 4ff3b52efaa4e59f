# Functions for scripts that fetch Debian packages without installing them, with a private apt configuration, which leaves
# the machine's configuration unchanged. The caller sets $apt_folder (a scratch folder), $log (the file for apt's output)
# and $topic (the prefix of messages); for source packages also $sources (the output folder).
# shellcheck shell=bash

# update_private_apt TYPE [RELEASE]: writes entries of type deb or deb-src for a release (default: this machine's),
# derived from the machine's deb entries, and fetches their package lists.
update_private_apt() {
  local type=$1 codename release parts=$apt_folder/parts list=$apt_folder/sources.list file
  codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
  release=${2:-$codename}
  rm -rf "$apt_folder"
  mkdir -p "$apt_folder/lists/partial" "$apt_folder/cache/archives/partial" "$parts"
  : >"$list"
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -e "$file" ] || continue
    sed -E -n "s/^deb( +\[[^]]*\])?( +[^ ]+ +)$codename( +.*)$/$type\1\2$release\3/p" "$file" >>"$list"
  done
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -e "$file" ] || continue
    # Selects stanzas in which one suite is this release's codename without a suffix.
    awk -v RS= -v codename="$codename" -v release="$release" -v type="$type" '
      $0 ~ "(^|\n)Suites:[^\n]*[ \t]" codename "([ \t\n]|$)" {
        sub(/(^|\n)Types:[^\n]*/, "\nTypes: " type); sub(/(^|\n)Suites:[^\n]*/, "\nSuites: " release); print; print ""
      }
    ' "$file" >"$parts/$(basename "$file")"
    [ -s "$parts/$(basename "$file")" ] || rm "$parts/$(basename "$file")"
  done
  if [ ! -s "$list" ] && [ -z "$(ls "$parts")" ]; then
    echo "$topic: cannot derive a source entry: this machine has no apt entry for $codename" >&2
    exit 1
  fi
  private_apt update >>"$log" 2>&1
}

private_apt() {
  apt-get -q -o "Dir::Etc::sourcelist=$apt_folder/sources.list" -o "Dir::Etc::sourceparts=$apt_folder/parts" \
    -o "Dir::State::Lists=$apt_folder/lists" -o "Dir::Cache=$apt_folder/cache" -o APT::Sandbox::User=root "$@" </dev/null
}

# fetch_source PACKAGE: unpacks the source of the package into $sources/PACKAGE. A mirror may have the original tarball but
# not Debian's changes to it, or neither, but those of Debian 12. All are verified against the checksums in the package
# index.
fetch_source() {
  local package=$1 folder=$sources/$1.tmp
  rm -rf "$folder"
  mkdir -p "$folder"
  if (cd "$folder" && private_apt source "$package" >>"$log" 2>&1); then
    mv "$folder"/*/ "$sources/$package"
  elif (cd "$folder" && rm -rf ./* && private_apt source --tar-only "$package" >>"$log" 2>&1); then
    echo "$topic: the mirror lacks Debian's changes to $package; using the original source"
    mkdir "$folder/source"
    tar -xf "$folder"/*.orig.tar.* -C "$folder/source" --strip-components=1
    mv "$folder/source" "$sources/$package"
  elif (apt_folder+=-bookworm && update_private_apt deb-src bookworm && cd "$folder" && rm -rf ./* &&
    private_apt source "$package" >>"$log" 2>&1); then
    echo "$topic: the mirror lacks this release's source of $package; using that of Debian 12"
    mv "$folder"/*/ "$sources/$package"
    rm -rf "$apt_folder-bookworm"
  else
    echo "$topic: cannot fetch the source of $package; run this again later or use another Debian mirror" >&2
    return 1
  fi
  rm -rf "$folder"
}

# fetch_sources PACKAGE...: fetches the sources that are missing. Waits for another script that is doing the same.
fetch_sources() {
  local package missing=()
  exec {sources_lock}>"$sources/.lock"
  flock "$sources_lock"
  for package in "$@"; do
    [ -d "$sources/$package" ] || missing+=("$package")
  done
  [ "${#missing[@]}" -gt 0 ] || { exec {sources_lock}>&-; return 0; }
  echo "$topic: fetching the source of ${missing[*]}"
  update_private_apt deb-src
  for package in "${missing[@]}"; do
    fetch_source "$package"
  done
  rm -rf "$apt_folder"
  exec {sources_lock}>&-
}

# Prints the section of a version in CHANGELOG.md as an entry of a Debian changelog.
#
#   awk -f changelog.awk -v version=V -v debian_version=V -v release=CODENAME -v maintainer='NAME <ADDRESS>' CHANGELOG.md

# Prints the collected item in lines of up to 78 characters.
function print_item(    words, count, i, line) {
  if (item == "") return
  count = split(item, words, " ")
  line = "  *"
  for (i = 1; i <= count; i++) {
    if (length(line) + 1 + length(words[i]) > 78) {
      print line
      line = "   "
    }
    line = line " " words[i]
  }
  print line
  item = ""
}

/^## / {
  is_inside = index($0, "## [" version "]") == 1
  if (is_inside) {
    date = $NF
    print "nuveqcamerahandler (" debian_version ") " release "; urgency=medium"
  }
  next
}
!is_inside || /^\[/ { next }
/^### / { print_item(); printf "\n  [ %s ]\n", substr($0, 5); next }
/^- / { print_item(); item = substr($0, 3); next }
/^  / { item = item $0 }

END {
  if (date == "") {
    print "CHANGELOG.md has no section for version " version >"/dev/stderr"
    exit 1
  }
  print_item()
  if ((("date -R -u -d " date) | getline time) != 1) exit 1
  printf "\n -- %s  %s\n", maintainer, time
}

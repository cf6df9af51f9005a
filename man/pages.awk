# Makes the manual page of a command from the text of that page and from the shared options:
#   awk -v name=clipjoin -v version=1.0 -v options=options.mdoc -f pages.awk clipjoin.1
# The line ".Os" gets the version. The line "@options" is replaced by the options. Lines from "@only NAME..." to "@end" are kept only for
# the commands that are named.

function put(line) {
  if (line ~ /^\.\\" @only /) {
    skipping = (line " ") !~ (" " name " ")
  } else if (line ~ /^\.\\" @end/) {
    skipping = 0
  } else if (!skipping && line !~ /^\.\\"/) {
    print line
  }
}

/^\.\\" @options/ {
  while ((status = (getline line < options)) > 0) put(line)
  if (status < 0) {
    print "pages.awk: cannot read " options > "/dev/stderr"
    exit 1
  }
  next
}

/^\.Os$/ { $0 = ".Os Reelwork " version }

{ put($0) }

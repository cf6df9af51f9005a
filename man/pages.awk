# Makes the manual page of a command out of its own text and the options that all of them share:
#   awk -v name=clipjoin -v options=options.mdoc -f pages.awk clipjoin.1
# A line "@options" stands for the options; "@only NAME..." to "@end" is kept for those commands.

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

{ put($0) }

// The things that clipinfo does, one function for each. All of them print to standard output.
#pragma once

#include <string>

#include "clipinfo/open.h"
#include "clipinfo/options.h"

namespace clipinfo {

// Prints what a person wants to know about a movie: a screen. Throws what reading throws, and then
// has printed nothing.
void PrintSummary(OpenedMovie opened);

// Prints the same and more as JSON: an array with an object for each movie. A movie that cannot be
// read has the member "error". Returns the exit status.
int PrintJson(const Options& options);

// Checks movies, prints a line or an object for each finding, and returns the exit status: 1 if
// anything is wrong.
int Check(const Options& options);

// Compares what the output presents with what the inputs present, and returns the exit status: 1 if
// they differ.
int Compare(const Options& options);

// Writes a picture of the time line of a movie, as SVG. Returns the exit status.
int WritePicture(const Options& options);

// Prints every atom of a file and its fields. Returns the exit status.
int PrintAtoms(const std::string& file);

}  // namespace clipinfo

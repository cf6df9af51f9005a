// Prepares the process before anything is opened or written.
#pragma once

namespace clipjoin {

// Opens /dev/null for each of standard input, output and error that is closed. Otherwise the first
// movie would be opened in its place, and messages would be written into that movie.
void OpenStandardStreams();

// Makes the signals that end the process remove unfinished files and the progress line first.
// Signals that the caller of the program ignores stay ignored. A write beyond the limit on file
// sizes fails with an error instead of ending the process.
void HandleSignals();

}  // namespace clipjoin

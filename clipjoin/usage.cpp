#include "clipjoin/usage.h"

#include <boost/algorithm/string/replace.hpp>
#include <iostream>

#include "clipjoin/option_rows.h"

namespace clipjoin {
namespace {

constexpr unsigned kJoinAndStack = kClipjoin | kClipstak;

// A part of the usage text and the commands that print it.
struct UsagePart {
  unsigned commands;
  const char* text;  // each line starts with a line end; '%' is the program as typed
};

// Completions read this text: an option is indented by three or four blanks, and the other lines of
// its description by more.
// Do not correct "conjuction", "ince" and "it's": scripts compare the text.
constexpr UsagePart kParts[] = {
    {kEvery, R"(
    -q                Be quiet: don't print informational messages
    -self-contained   Copy all data into the output movie. By default the output
        is a small reference movie that points to data in other movies. Also
        makes the movie fast-start with a compressed header, which is useful
        for web downloads.
    -no-fast-start    When used with -self-contained, does not make the movie
        fast-start. This is quicker and needs less disk space.
    -no-compressed-header
        When used in conjuction with -self-contained, does not
        compress the movie header.
    -mp4              Try to output an MPEG-4 movie. This only works when all
        sources contain only MPEG-4 video and/or AAC audio. Nothing is
        re-encoded.
    -remove-output-edit-list
        Removes the edit list from all tracks in the output movie. This makes
        audio files compatible with iTunes 5.0-5.0.1.
    -chapter-tool-xml filename
        Output an XML file for use with Apple's ChapterTool to filename.
    -chapter-track name
        Use the named chapter as a chapter track for the movie.)"},
    {kClipjoin, R"(
    -auto-chapters    Make one chapter per movie. Existing chapter tracks are
        discarded.
    -auto-chapters-merge
        Make chapters for movies that don't have them, and use the chapters of
        those that do.
    -unique-tracks    Put each track from each movie in its own track. By
        default tracks are reused. This helps with movies that 'skip'.
    -force-same-tracks
        Force the use of as few tracks as possible. Useful with -mp4.)"},
    {kEvery, R"(
   -add-chapter name time
        Adds a chapter with that name at that time. A chapter track is created
        if there is none.
       time should be of the form hh:mm:ss.fractions.
   -set-auto-play    Set movie to automatically play when opened
   -unset-auto-play  Set movie to not automatically play when opened
   -set-looping      Set movie to loop (play over and over) when played
   -unset-looping   Set movie to play through ince when played)"},
    {kCliptune, R"(
    -name-from-stdin  The file name is read from standard input instead of the
        command line.
    -save-in-place   Save the changes to the same file.)"},
    {kJoinAndStack, R"(
    -names-from-stdin The file names are read from standard input instead of the
        command line, one file per line.)"},
    {kEvery, R"(
    -o filename       Output to the file filename. (Defaults to
        ~/Desktop/out.mov or ~/Desktop/out.mp4).
    -                 Terminate option processing (including file specific
        options). All other arguments are file names.)"},
    {kJoinAndStack, R"(
Global or file specific options:
These options are global if they appear before any filenames and local if they
appear after a filename.)"},
    {kEvery, R"(
    -noresolve        Don't look for data in external files. This helps with
        reference movies whose original files have disappeared.)"},
    {kJoinAndStack, R"(
    -use-settings     Use the settings of this movie for the output movie.)"},
    {kEvery, R"(
    -no-convert-tags  Don't attempt to convert AAC tags.
    -list             List the names of the tracks.
    -nolist           Don't list the names of the tracks (cancels a global
        -list).
    -chaplist         List the names of the chapters.
    -nochaplist       Don't list the names of the chapters (cancels a global
        -chaplist).)"},
    {kClipstak, R"(
    -scale            Scale the input to the current length of the output movie.
        This has no effect on the first file.
    -noscale          Don't scale the input (cancels a global -scale).
    -transparency-mode mode [color]
        Sets the transparency mode for video in this movie. Type
        % -transparency-mode help
        for a list of modes.
    -placeAt time     Multiplex the input starting at that time in the output.
        This has no effect on the first file.)"},
    {kEvery, R"(
    -sscale factor    Scale each visual track in both directions. factor can be
        an integer, a floating point number, or a fraction n/d.
    -vscale factor    Scale each visual track vertically.
    -hscale factor    Scale each visual track horizontally.
    -rotate degrees   Rotate each visual track clockwise.
    -about X Y        By default rotation and scaling are centered at the
        origin. Add -about after a -Xscale or -rotate argument to center it
        elsewhere.
    -vtranslate pixels
        Move each visual track down.
    -htranslate pixels
        Move each visual track to the right.
    -resetmatrix      Reset track matrices to identity before applying scaling
        and translation options.
    -msscale factor   Scale the movie in both directions.
    -mvscale factor   Scale the movie vertically.
    -mhscale factor   Scale the movie horizontally.
    -mrotate degrees  Rotate the movie clockwise. Add -about after a -mXscale or
        -mrotate argument to center it elsewhere.
    -resetmmatrix     Reset movie matrix to identity before applying scaling
        options.
    -rate f           Set playback rate to a fraction f of it's original value.
    -timescale scale  Set the time scale of the movie to scale.
    -timescale -sameAsTrack trackName
        Set the time scale of the movie to that of the named track.
    -fix-roundoff-errors
        Fix round-off errors in the track duration that come from
        incommensurate media and movie time scales. Only works with
        -timescale. Useful for iTunes 5 compatible tracks.
    -remove-edit-list Removes the edit list from all tracks in the movie.
    -trimToShortestTrack
        Trim each track to the length of the shortest track.
    -scaleToShortestTrack
        Scale each track to the length of the shortest track.
    -scaleToLongestTrack
        Scale each track to the length of the longest track.
    -trimToLengthOf name
        Trim each track to the length of the named track.
    -scaleToLengthOf name
        Scale each track to the length of the named track.
    -trimToLengthOfMovie name
        Trim the movie to the length of the movie in the named file.
    -scaleToLengthOfMovie name
        Scale each track to the length of the movie in the named file. Each
        track is scaled independently.
    -scaleMovieToLengthOfMovie name
        Scale the movie to the length of the movie in the named file. All tracks
        are scaled by the same factor.
    -startAt time     Start the movie at that time: remove everything before it.
    -trimTo duration  Trim the movie to that duration.
    -duration duration
        The same as -trimTo.
    -trimBy duration  Remove that amount from the end of the movie.
    -scaleTo duration Scale each track to that duration. Each track is scaled
        independently.
    -scaleMovieTo duration
        Scale the movie to that duration. All tracks are scaled by the same
        factor.
    -track name       Only include the named track. May be repeated to include
        several tracks.
    -notrack name     Include all but the named track. May be repeated to leave
        out several tracks.
    Using both -track and -notrack on the same command line produces undefined
    results.
    -enable name      Enable the named track.
    -disable name     Disable the named track.
    -chapter name     Only include the named chapter. May be repeated to include
        several chapters.
    -nochapter name   Include all but the named chapter. May be repeated to
        leave out several chapters.
    Using both -chapter and -nochapter on the same command line produces undefined
    results.)"},
    {kClipjoin, R"(
    -chapter-name name   When used with -auto-chapters, allows renaming the
        chapter for a file.)"},
};

}  // namespace

void PrintUsage(const std::string& invocation, CommandMode mode, const std::string& name) {
  std::cerr << name << " version 1.2.4 (August 24, 2006)\n"
            << "Type \"man " << name << "\" or \"man Reelwork\" for more information\n"
            << "Usage: " << invocation
            << (mode == CommandMode::kModify
                    ? " [options] filename [-o outfileName | -save-in-place]"
                    : " [global options] filename1 [file specific options] [filename2 "
                      "[file specific options] ... ]\nGlobal options:");
  for (const UsagePart& part : kParts) {
    if (!Includes(part.commands, mode)) continue;
    std::cerr << boost::replace_first_copy(std::string(part.text), "%", invocation);
  }
  std::cerr << '\n';
}

}  // namespace clipjoin

#include "clipjoin/usage.h"

#include <iostream>
#include <string_view>

#include "clipjoin/option_rows.h"

namespace clipjoin {
namespace {

// Replaced by the program as typed.
constexpr std::string_view kInvocation = "%";

constexpr unsigned kJoinAndStack = kClipjoin | kClipstak;

// A part of the usage text and the commands that it is for.
struct UsageEntry {
  unsigned commands;
  const char* text;  // whole lines; the first names the option
};

// In the order of the text. "conjuction", "ince" and "it's" are not typing errors of ours to
// correct: scripts compare this text.
constexpr UsageEntry kEntries[] = {
    {kEvery, "    -q                Be quiet: don't print informational messages\n"},
    {kEvery,
     "    -self-contained   Copy all data into the output movie. By default the output\n"
     "        is a small reference movie that points to data in other movies. Also\n"
     "        makes the movie fast-start with a compressed header, which is useful\n"
     "        for web downloads.\n"},
    {kEvery,
     "    -no-fast-start    When used with -self-contained, does not make the movie\n"
     "        fast-start. This is quicker and needs less disk space.\n"},
    {kEvery,
     "    -no-compressed-header\n"
     "        When used in conjuction with -self-contained, does not\n"
     "        compress the movie header.\n"},
    {kEvery,
     "    -mp4              Try to output an MPEG-4 movie. This only works when all\n"
     "        sources contain only MPEG-4 video and/or AAC audio. Nothing is\n"
     "        re-encoded.\n"},
    {kEvery,
     "    -remove-output-edit-list\n"
     "        Removes the edit list from all tracks in the output movie. This makes\n"
     "        audio files compatible with iTunes 5.0-5.0.1.\n"},
    {kEvery,
     "    -chapter-tool-xml filename\n"
     "        Output an XML file for use with Apple's ChapterTool to filename.\n"},
    {kEvery,
     "    -chapter-track name\n"
     "        Use the named chapter as a chapter track for the movie.\n"},
    {kClipjoin,
     "    -auto-chapters    Make one chapter per movie. Existing chapter tracks are\n"
     "        discarded.\n"},
    {kClipjoin,
     "    -auto-chapters-merge\n"
     "        Make chapters for movies that don't have them, and use the chapters of\n"
     "        those that do.\n"},
    {kClipjoin,
     "    -unique-tracks    Put each track from each movie in its own track. By\n"
     "        default tracks are reused. This helps with movies that 'skip'.\n"},
    {kClipjoin,
     "    -force-same-tracks\n"
     "        Force the use of as few tracks as possible. Useful with -mp4.\n"},
    {kEvery,
     "   -add-chapter name time\n"
     "        Adds a chapter with that name at that time. A chapter track is created\n"
     "        if there is none.\n"
     "       time should be of the form hh:mm:ss.fractions.\n"},
    {kEvery, "   -set-auto-play    Set movie to automatically play when opened\n"},
    {kEvery, "   -unset-auto-play  Set movie to not automatically play when opened\n"},
    {kEvery, "   -set-looping      Set movie to loop (play over and over) when played\n"},
    {kEvery, "   -unset-looping   Set movie to play through ince when played\n"},
    {kCliptune,
     "    -name-from-stdin  The file name is read from standard input instead of the\n"
     "        command line.\n"},
    {kCliptune, "    -save-in-place   Save the changes to the same file.\n"},
    {kJoinAndStack,
     "    -names-from-stdin The file names are read from standard input instead of the\n"
     "        command line, one file per line.\n"},
    {kEvery,
     "    -o filename       Output to the file filename. (Defaults to\n"
     "        ~/Desktop/out.mov or ~/Desktop/out.mp4).\n"},
    {kEvery,
     "    -                 Terminate option processing (including file specific\n"
     "        options). All other arguments are file names.\n"},
    {kJoinAndStack,
     "Global or file specific options:\n"
     "These options are global if they appear before any filenames and local if they\n"
     "appear after a filename.\n"},
    {kEvery,
     "    -noresolve        Don't look for data in external files. This helps with\n"
     "        reference movies whose original files have disappeared.\n"},
    {kJoinAndStack, "    -use-settings     Use the settings of this movie for the output movie.\n"},
    {kEvery, "    -no-convert-tags  Don't attempt to convert AAC tags.\n"},
    {kEvery, "    -list             List the names of the tracks.\n"},
    {kEvery,
     "    -nolist           Don't list the names of the tracks (cancels a global\n"
     "        -list).\n"},
    {kEvery, "    -chaplist         List the names of the chapters.\n"},
    {kEvery,
     "    -nochaplist       Don't list the names of the chapters (cancels a global\n"
     "        -chaplist).\n"},
    {kClipstak,
     "    -scale            Scale the input to the current length of the output movie.\n"
     "        This has no effect on the first file.\n"},
    {kClipstak, "    -noscale          Don't scale the input (cancels a global -scale).\n"},
    {kClipstak,
     "    -transparency-mode mode [color]\n"
     "        Sets the transparency mode for video in this movie. Type\n"
     "        % -transparency-mode help\n"
     "        for a list of modes.\n"},
    {kClipstak,
     "    -placeAt time     Multiplex the input starting at that time in the output.\n"
     "        This has no effect on the first file.\n"},
    {kEvery,
     "    -sscale factor    Scale each visual track in both directions. factor can be\n"
     "        an integer, a floating point number, or a fraction n/d.\n"},
    {kEvery, "    -vscale factor    Scale each visual track vertically.\n"},
    {kEvery, "    -hscale factor    Scale each visual track horizontally.\n"},
    {kEvery, "    -rotate degrees   Rotate each visual track clockwise.\n"},
    {kEvery,
     "    -about X Y        By default rotation and scaling are centered at the\n"
     "        origin. Add -about after a -Xscale or -rotate argument to center it\n"
     "        elsewhere.\n"},
    {kEvery, "    -vtranslate pixels\n        Move each visual track down.\n"},
    {kEvery, "    -htranslate pixels\n        Move each visual track to the right.\n"},
    {kEvery,
     "    -resetmatrix      Reset track matrices to identity before applying scaling\n"
     "        and translation options.\n"},
    {kEvery, "    -msscale factor   Scale the movie in both directions.\n"},
    {kEvery, "    -mvscale factor   Scale the movie vertically.\n"},
    {kEvery, "    -mhscale factor   Scale the movie horizontally.\n"},
    {kEvery,
     "    -mrotate degrees  Rotate the movie clockwise. Add -about after a -mXscale or\n"
     "        -mrotate argument to center it elsewhere.\n"},
    {kEvery,
     "    -resetmmatrix     Reset movie matrix to identity before applying scaling\n"
     "        options.\n"},
    {kEvery, "    -rate f           Set playback rate to a fraction f of it's original value.\n"},
    {kEvery, "    -timescale scale  Set the time scale of the movie to scale.\n"},
    {kEvery,
     "    -timescale -sameAsTrack trackName\n"
     "        Set the time scale of the movie to that of the named track.\n"},
    {kEvery,
     "    -fix-roundoff-errors\n"
     "        Fix round-off errors in the track duration that come from\n"
     "        incommensurate media and movie time scales. Only works with\n"
     "        -timescale. Useful for iTunes 5 compatible tracks.\n"},
    {kEvery, "    -remove-edit-list Removes the edit list from all tracks in the movie.\n"},
    {kEvery,
     "    -trimToShortestTrack\n"
     "        Trim each track to the length of the shortest track.\n"},
    {kEvery,
     "    -scaleToShortestTrack\n"
     "        Scale each track to the length of the shortest track.\n"},
    {kEvery,
     "    -scaleToLongestTrack\n"
     "        Scale each track to the length of the longest track.\n"},
    {kEvery,
     "    -trimToLengthOf name\n"
     "        Trim each track to the length of the named track.\n"},
    {kEvery,
     "    -scaleToLengthOf name\n"
     "        Scale each track to the length of the named track.\n"},
    {kEvery,
     "    -trimToLengthOfMovie name\n"
     "        Trim the movie to the length of the movie in the named file.\n"},
    {kEvery,
     "    -scaleToLengthOfMovie name\n"
     "        Scale each track to the length of the movie in the named file. Each\n"
     "        track is scaled independently.\n"},
    {kEvery,
     "    -scaleMovieToLengthOfMovie name\n"
     "        Scale the movie to the length of the movie in the named file. All tracks\n"
     "        are scaled by the same factor.\n"},
    {kEvery, "    -startAt time     Start the movie at that time: remove everything before it.\n"},
    {kEvery, "    -trimTo duration  Trim the movie to that duration.\n"},
    {kEvery, "    -duration duration\n        The same as -trimTo.\n"},
    {kEvery, "    -trimBy duration  Remove that amount from the end of the movie.\n"},
    {kEvery,
     "    -scaleTo duration Scale each track to that duration. Each track is scaled\n"
     "        independently.\n"},
    {kEvery,
     "    -scaleMovieTo duration\n"
     "        Scale the movie to that duration. All tracks are scaled by the same\n"
     "        factor.\n"},
    {kEvery,
     "    -track name       Only include the named track. May be repeated to include\n"
     "        several tracks.\n"},
    {kEvery,
     "    -notrack name     Include all but the named track. May be repeated to leave\n"
     "        out several tracks.\n"
     "    Using both -track and -notrack on the same command line produces undefined\n"
     "    results.\n"},
    {kEvery, "    -enable name      Enable the named track.\n"},
    {kEvery, "    -disable name     Disable the named track.\n"},
    {kEvery,
     "    -chapter name     Only include the named chapter. May be repeated to include\n"
     "        several chapters.\n"},
    {kEvery,
     "    -nochapter name   Include all but the named chapter. May be repeated to\n"
     "        leave out several chapters.\n"
     "    Using both -chapter and -nochapter on the same command line produces undefined\n"
     "    results.\n"},
    {kClipjoin,
     "    -chapter-name name   When used with -auto-chapters, allows renaming the\n"
     "        chapter for a file.\n"},
};

}  // namespace

void PrintUsage(const std::string& invocation, CommandMode mode, const std::string& name) {
  std::ostream& out = std::cerr;
  out << name << " version 1.2.4 (August 24, 2006)\n"
      << "Type \"man " << name << "\" or \"man Reelwork\" for more information\n"
      << "Usage: " << invocation;
  if (mode == CommandMode::kModify) {
    out << " [options] filename [-o outfileName | -save-in-place]\n";
  } else {
    out << " [global options] filename1 [file specific options] [filename2 [file specific options] "
           "... ]\nGlobal options:\n";
  }
  for (const UsageEntry& entry : kEntries) {
    if (!Includes(entry.commands, mode)) continue;
    std::string text = entry.text;
    if (const auto at = text.find(kInvocation); at != std::string::npos) {
      text.replace(at, kInvocation.size(), invocation);
    }
    out << text;
  }
  out.flush();
}

}  // namespace clipjoin

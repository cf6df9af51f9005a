#include "chapter/genres.h"

#include <iterator>

namespace chapter {
namespace {

// Five a row, so that a number can be looked up.
// clang-format off
constexpr const char* kNames[] = {
    /*   1 */ "Blues", "Classic Rock", "Country", "Dance", "Disco",
    /*   6 */ "Funk", "Grunge", "Hip-Hop", "Jazz", "Metal",
    /*  11 */ "New Age", "Oldies", "Other", "Pop", "R&B",
    /*  16 */ "Rap", "Reggae", "Rock", "Techno", "Industrial",
    /*  21 */ "Alternative", "Ska", "Death Metal", "Pranks", "Soundtrack",
    /*  26 */ "Euro-Techno", "Ambient", "Trip-Hop", "Vocal", "Jazz+Funk",
    /*  31 */ "Fusion", "Trance", "Classical", "Instrumental", "Acid",
    /*  36 */ "House", "Game", "Sound Clip", "Gospel", "Noise",
    /*  41 */ "AlternRock", "Bass", "Soul", "Punk", "Space",
    /*  46 */ "Meditative", "Instrumental Pop", "Instrumental Rock", "Ethnic", "Gothic",
    /*  51 */ "Darkwave", "Techno-Industrial", "Electronic", "Pop-Folk", "Eurodance",
    /*  56 */ "Dream", "Southern Rock", "Comedy", "Cult", "Gangsta",
    /*  61 */ "Top 40", "Christian Rap", "Pop/Funk", "Jungle", "Native American",
    /*  66 */ "Cabaret", "New Wave", "Psychadelic", "Rave", "Showtunes",
    /*  71 */ "Trailer", "Lo-Fi", "Tribal", "Acid Punk", "Acid Jazz",
    /*  76 */ "Polka", "Retro", "Musical", "Rock & Roll", "Hard Rock",
    /*  81 */ "Folk", "Folk-Rock", "National Folk", "Swing", "Fast Fusion",
    /*  86 */ "Bebob", "Latin", "Revival", "Celtic", "Bluegrass",
    /*  91 */ "Avantgarde", "Gothic Rock", "Progressive Rock", "Psychedelic Rock", "Symphonic Rock",
    /*  96 */ "Slow Rock", "Big Band", "Chorus", "Easy Listening", "Acoustic",
    /* 101 */ "Humour", "Speech", "Chanson", "Opera", "Chamber Music",
    /* 106 */ "Sonata", "Symphony", "Booty Bass", "Primus", "Porn Groove",
    /* 111 */ "Satire", "Slow Jam", "Club", "Tango", "Samba",
    /* 116 */ "Folklore", "Ballad", "Power Ballad", "Rhythmic Soul", "Freestyle",
    /* 121 */ "Duet", "Punk Rock", "Drum Solo", "A Capella", "Euro-House",
    /* 126 */ "Dance Hall"
};
// clang-format on

}  // namespace

const char* GenreName(std::uint16_t number) {
  return number >= 1 && number <= std::size(kNames) ? kNames[number - 1] : "";
}

}  // namespace chapter

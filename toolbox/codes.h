// Result codes of the toolbox calls, by their platform names and numbers.
#pragma once

#include <cstdint>

namespace toolbox {

using OSErr = std::int16_t;

enum : OSErr {
  noErr = 0,
  dskFulErr = -34,
  ioErr = -36,
  bdNamErr = -37,
  fnOpnErr = -38,
  eofErr = -39,
  tmfoErr = -42,
  fnfErr = -43,
  fLckdErr = -45,
  vLckdErr = -46,
  fBsyErr = -47,
  dupFNErr = -48,
  paramErr = -50,
  memFullErr = -108,
  nilHandleErr = -109,
  dirNFErr = -120,
  notAFileErr = -1302,
  errFSBadFSRef = -1401,
  couldNotResolveDataRef = -2000,
  badPublicMovieAtom = -2002,
  cantFindHandler = -2003,
  noMediaHandler = -2006,
  noDataHandler = -2007,
  invalidMedia = -2008,
  invalidTrack = -2009,
  invalidMovie = -2010,
  invalidSampleTable = -2011,
  invalidDataRef = -2012,
  invalidDuration = -2014,
  invalidTime = -2015,
  mediaTypesDontMatch = -2018,
  userDataItemNotFound = -2026,
  maxSizeToGrowTooSmall = -2027,
  badTrackIndex = -2028,
  trackNotInMovie = -2030,
  invalidSampleNum = -2037,
  invalidSampleDescIndex = -2039,
  invalidSampleDescription = -2041,
  dataNotOpenForWrite = -2043,
  dataAlreadyOpenForWrite = -2044,
  dataAlreadyClosed = -2045,
  noMovieFound = -2048,
  badDataRefIndex = -2050,
  noDefaultDataRef = -2051,
  featureUnsupported = -2053,
  pathTooLongErr = -2110,
  invalidComponentID = -3000,
  afpAccessDenied = -5000,
  badComponentSelector = -32766,  // the low 16 bits of 0x80008002
};

}  // namespace toolbox

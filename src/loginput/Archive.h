// Unpacking of a site's ARCHIVE.ZIP into its log folder before the folder is listed, and removal
// of the unpacked files after the site has been scanned.
//
// The files are reported, listed in run.extracted and later deleted under their full path
// (log folder + file name), so removal does not depend on the working folder. What may be
// written where is decided by platform::ZipArchive: nothing outside the log folder, no file
// replaced, sub-folder members under their file name alone. Every member left out is noted in
// errors.log under "ModFiles.UnZipArchive".
#pragma once

#include <string_view>

#include "loginput/LogInputState.h"
#include "platform/Zip.h"

namespace platform {
class Frontend;
}
namespace startup {
struct World;
}

namespace loginput {

// The archive's name in a log folder (looked up case-insensitively).
inline constexpr std::string_view kArchiveName = "ARCHIVE.ZIP";

// Unpacks the site's FOLDER + "ARCHIVE.ZIP" into FOLDER. Shows "Moving Files Out Of The
// Archive:" in the second file caption and then, per file, "Moving Files Out Of The Archive: " +
// its path; the progress bar runs 0..100. run.extracted/extractedCount list every file reported
// (reset to empty first); run.unzipping is true while it works, and a Cancel confirmed during one
// of its yields aborts the unpacking and sets run.cancelled. A damaged or unreadable archive ends
// the unpacking without a message box (a line goes to errors.log); the files unpacked so far stay
// and are listed. REQUIRES: 1 <= siteIndex <= world.siteCount. Never throws.
void UnZipArchive(startup::World& world, platform::Frontend& ui, LogInputState& run, int siteIndex,
                  const platform::ZipArchive::Limits& limits = {});

// Shows "Removing Tempory Files" and deletes every file of run.extracted that still exists as a
// regular file under exactly that path; a file already gone is skipped. A deletion that fails is
// noted in errors.log under "ModFiles.DeleteArchive". Then the list of unpacked files goes.
// Never throws.
void DeleteArchive(startup::World& world, platform::Frontend& ui, LogInputState& run,
                   int siteIndex);

// The list of unpacked files, kept in the data folder's "Temp" folder while a site's archive is
// unpacked and scanned: the log folder first ("folder <path>"), then every file, written there
// before the file itself is ("file <path>"). A run killed before DeleteArchive leaves it behind.
std::string UnpackedListPath(const std::string& dataFolder);

// What an unpacking that never reached DeleteArchive left (the run was killed): every file named
// in the list that is still a regular file directly in the listed log folder, and the partial
// files of the unpacking (".tyunzip-*.tmp") in that folder, are deleted, then the list. Files the
// list does not name are never touched, so a user's own logs stay. Each deletion is noted in
// errors.log under "ModFiles.UnZipArchive". Returns the number of files deleted. Never throws.
int RemoveLeftoverUnpackedFiles(startup::World& world);

}  // namespace loginput

// MediaScanner: turns a set folder into sources. Each sub-folder (walked
// recursively) is one source; files lying in the set folder itself make one
// more, named after the set, standing last. A source's kind follows from its
// files: any video makes it a camera. Nothing here decides time.
//
// Never fails: unreadable folders give nothing, unreadable files are listed
// in their source's `unreadable`, and each refusal can be reported with its
// reason. Files that are not media are left aside, each with why, except
// cameras' thumbnails (.THM), which are left quietly. The low-resolution copy
// an action camera writes beside a chapter (.LRV, same name and length)
// becomes that chapter's `previewCopy`, never an item of its own. FIFOs,
// devices and sockets are never opened. A file reached twice
// (a link back into the set) counts once. Blocking; call it off the
// interface thread.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "sync/Media.h"

namespace qv::MediaScanner {

extern const std::vector<std::string> videoExtensions;
extern const std::vector<std::string> audioExtensions;

// A file or folder of the set that could not be read.
struct Refusal {
    std::filesystem::path path;
    std::string name;    // relative to the set folder: "Cam 3/clip 1.mp4"
    std::string reason;  // French: "fichier tronqué", "accès refusé"...
    bool folder = false;

    // "Fichier illisible : Cam 3/clip 1.mp4 (fichier tronqué)", or
    // "Dossier illisible : …" for a folder.
    std::string message() const;
};

// A file of the set that is not taken, though readable: not media, or a
// preview copy without its chapter.
struct SetAside {
    std::filesystem::path path;
    std::string name;    // relative to the set folder
    std::string reason;  // French: "format non pris en charge"...

    // "Fichier écarté : Cam 1/notes.txt (format non pris en charge)".
    std::string message() const;
};

// `refused`, when given, receives every refused file and folder in the
// order of the scan; `setAside` every file left aside.
std::vector<MediaSource> scan(const std::filesystem::path& folder, std::vector<Refusal>* refused = nullptr,
                              std::vector<SetAside>* setAside = nullptr);

// The steps of `scan`, open for tests.
std::vector<std::filesystem::path> mediaFiles(const std::filesystem::path& folder, bool recursive,
                                              std::vector<Refusal>* refused = nullptr);
std::optional<MediaSource> source(const std::string& name, const std::vector<std::filesystem::path>& files,
                                  std::vector<Refusal>* refused = nullptr);
std::optional<MediaItem> probe(const std::filesystem::path& file, std::string* whyNot = nullptr);

// French lines for the log naming the video files read as BT.709 for want
// of colours the program can follow: one for transfers it does not know,
// one for pictures of more than 8 bits that carry no colour tag at all (a
// phone or a recorder that forgot them: they may well be HDR). Empty when
// every file says what it is.
std::vector<std::string> colourNotes(const std::vector<MediaSource>& sources);

}  // namespace qv::MediaScanner

#include "entry/Cli.h"

#include <filesystem>

#include "base/Format.h"
#include "base/Text.h"
#include "sync/MediaScanner.h"

namespace fs = std::filesystem;

namespace qv::CLI {

int run(const std::vector<std::string>& arguments, std::ostream& out) {
    if (arguments.size() < 2) {
        out << "Usage : Quorvel --cli <dossier du set> <sortie.xml>\n";
        return 1;
    }
    fs::path folder = fs::absolute(arguments[0]);
    fs::path output = fs::absolute(arguments[1]);
    (void)output;

    std::vector<MediaSource> sources = MediaScanner::scan(folder);
    for (const auto& s : sources) {
        out << "[" << (s.kind == SourceKind::camera ? "CAM" : "SON") << "] " << s.name << " : " << s.items.size()
            << " fichiers, " << Format::duration(s.totalDuration()) << "\n";
    }
    return 0;
}

}  // namespace qv::CLI

#include "entry/CommandLine.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <cmath>
#include <functional>

#include "base/SafeText.h"
#include "base/Text.h"
#include "entry/CliPicture.h"
#include "entry/CliVideo.h"

// The parser's namespace; `CLI` inside qv is the run without a screen.
namespace cli11 = ::CLI;

namespace qv {

namespace {

const char* const modes = "Modes";
const char* const withoutScreen = "Sans écran, avec --cli";
const char* const window = "Application";

// A check whose refusal is one French line, kept as the line's error: CLI11
// would otherwise answer in English.
cli11::Validator accepted(CommandLine& line, const std::string& option, const std::string& expected,
                        std::function<bool(const std::string&)> ok) {
    return cli11::Validator(
        [&line, option, expected, ok = std::move(ok)](std::string& value) -> std::string {
            if (ok(value)) return {};
            if (!line.error)
                line.error = "Valeur invalide pour " + option + " : « " + terminalSafe(value) + " » (attendu : " +
                             expected + ")";
            return *line.error;
        },
        expected);
}

// "avant-après" in seconds, as the drops panel's margins.
std::optional<std::pair<double, double>> dropMarginsOf(const std::string& text) {
    auto parts = split(text, '-');
    if (parts.size() != 2) return std::nullopt;
    auto pre = parseDouble(parts[0]), post = parseDouble(parts[1]);
    if (!pre || !post || !std::isfinite(*pre) || !std::isfinite(*post) || *pre < 0 || *post <= 0) return std::nullopt;
    return std::pair{*pre, *post};
}

// The declaring of options, each in the group its help line stands in.
struct Declare {
    cli11::App& app;
    CommandLine& line;
    const char* group;

    cli11::Option* flag(const char* name, const std::string& help) {
        return app.add_flag(name)->description(help)->group(group);
    }
    cli11::Option* flag(const char* name, bool& to, const char* help) {
        return app.add_flag(name, to, help)->group(group);
    }
    // `shown` stands for the value in the help.
    template <class T>
    cli11::Option* value(const char* name, T& to, const char* shown, const char* help) {
        return app.add_option(name, to, help)->option_text(shown)->group(group);
    }
    // A value that stops the run unless `ok`; `keep` stores it once accepted.
    cli11::Option* checked(const char* name, const char* shown, const char* help, const char* expected,
                           std::function<bool(const std::string&)> ok, std::function<void(const std::string&)> keep) {
        return app.add_option_function<std::string>(name, std::move(keep), help)
            ->option_text(shown)
            ->check(accepted(line, name, expected, std::move(ok)))
            ->group(group);
    }
};

// Every option of the program, one line each: its name, where its value
// lands in `line`, its help line and what its value must be.
void declare(cli11::App& app, CommandLine& line) {
    app.set_help_flag();  // ours, below: French, and decided after the whole line is read
    app.allow_extras();
    // Repeated options keep their first value; the others are said.
    app.option_defaults()->multi_option_policy(cli11::MultiOptionPolicy::TakeFirst)->disable_flag_override();
    app.add_option("chemins", line.paths)->multi_option_policy(cli11::MultiOptionPolicy::TakeAll)->group("");

    Declare o{app, line, modes};
    o.flag("--cli", "la chaîne complète sans écran, du set au XML");
    o.value("--selftest", line.fixtures, "[dossier]", "la vérification intégrée (Tests/Fixtures)")
        ->expected(0, 1)
        ->default_str(line.fixtures);
    o.flag("-h,--help", "affiche cette aide");
    o.flag("--version", "affiche le nom et la version");

    o.group = withoutScreen;
    o.flag("--drops", line.drops, "affiche les drops trouvés");
    o.flag("--auto", line.autoEdit, "monte automatiquement, écrit ce montage et en donne les chiffres");
    o.flag("--sans-analyse", line.noAnalysis, "le montage auto ne regarde pas les images");
    o.value("--montage", line.montage, "t:cam,...", "monte à la main : à t s, la caméra cam (de 1)");
    o.value("--range", line.range, "a-b", "la partie du set exportée, en secondes");
    o.flag("--effets", line.effects, "des zooms dessinés sur les plans");
    o.flag("--son-tout", line.soundAll, "le son de toutes les sources");
    o.flag("--son-camera", line.soundCamera, "le son de la caméra à l'image");
    o.value("--format", line.format, "16:9|9:16|4:5|1:1", "le format de sortie (16:9 par défaut)");
    o.value("--cadrage", line.framing, "x", "le cadrage de chaque caméra, de -1 à 1");
    o.value("--mlt", line.mlt, "fichier.mlt", "aussi un projet MLT (Kdenlive, Shotcut)");
    o.value("--otio", line.otio, "fichier.otio", "aussi une timeline OpenTimelineIO");
    o.value("--video", line.video, "fichier", "la vidéo finie du montage (.mp4 ou .mov)");
    o.checked("--codec", "h264|hevc|prores", "son codec (ProRes pour .mov, sinon H.264)", "h264, hevc ou prores",
              CLI::isCodecName, [&line](const std::string& v) { line.codec = v; });
    o.value("--clips-drops", line.clipsFolder, "dossier", "un clip par drop dans ce dossier");
    o.checked("--marges-drop", "avant-après", "secondes gardées avant et après un drop (15-30)",
              "avant-après en secondes, comme 15-30", [](const std::string& v) { return dropMarginsOf(v).has_value(); },
              [&line](const std::string& v) { line.dropMargins = dropMarginsOf(v); });
    o.checked("--loudness", "-14|-23", "le son de la vidéo et des clips à ce niveau (LUFS)", "-14 ou -23",
              [](const std::string& v) { return CLI::loudnessOf(v).has_value(); },
              [&line](const std::string& v) { line.loudness = CLI::loudnessOf(v); });

    app.add_option("--rate", line.rate, "la cadence des XML, MLT, OTIO et de la vidéo")
        ->option_text("25|29.97|29.97df|...")
        ->check(accepted(line, "--rate", "23.976, 24, 25, 29.97, 30, 50, 59.94 ou 60 ; 29.97df ou 59.94df pour le drop-frame",
                         [](const std::string& v) { return CLI::rateOf(v).has_value(); }))
        ->group(withoutScreen);
    app.add_flag("--cfr", line.constantRate, "copie les fichiers à cadence variable en fixe")
        ->group(withoutScreen);

    // The window reads its own options again from the whole line (the demo
    // family, the scenes of screenshots); they are declared here for the
    // help and so that their values are not taken for paths.
    o.group = window;
    o.value("--open", line.open, "dossier", "ouvre le projet de ce set et le synchronise");
    o.flag("--demo", "la scène de démonstration, sans fichier");
    o.flag("--demo-vertical", "la démonstration en 9:16");
    o.flag("--demo-auto", "la démonstration montée automatiquement");
    o.flag("--demo-looks", "la démonstration avec des looks");
    for (auto [flag, panel] : {std::pair{"--demo-son", "Son"}, {"--demo-effets", "Effets"}, {"--demo-drops", "Drops"},
                               {"--demo-etalo", "Étalonnage"}, {"--demo-recadrage", "Recadrage"},
                               {"--demo-export", "Export"}, {"--demo-parametres", "Paramètres"}})
        o.flag(flag, std::string("ouvre le panneau ") + panel + " au départ");
    o.flag("--tuto", "le tutoriel, sur un projet d'exemple");
}

// Arguments that mean nothing for the run or shape nothing alone.
void warnAboutCombinations(CommandLine& line) {
    auto& w = line.warnings;
    const bool edits = line.montage || line.autoEdit || line.video || line.clipsFolder;
    if (!edits) {
        const std::pair<const char*, bool> only[] = {{"--range", line.range.has_value()},
                                                     {"--format", line.format.has_value()},
                                                     {"--cadrage", line.framing.has_value()},
                                                     {"--effets", line.effects},
                                                     {"--son-tout", line.soundAll},
                                                     {"--son-camera", line.soundCamera}};
        for (auto [option, given] : only)
            if (given) w.push_back(std::string("Option ignorée sans --montage : ") + option);
    }
    const bool renders = line.video || line.clipsFolder;
    if (!line.codec.empty() && !renders) w.push_back("Option ignorée sans --video : --codec");
    if (line.loudness && !renders) w.push_back("Option ignorée sans --video ni --clips-drops : --loudness");
    if (line.dropMargins && !line.clipsFolder) w.push_back("Option ignorée sans --clips-drops : --marges-drop");
    if (line.noAnalysis && !line.autoEdit && !line.clipsFolder)
        w.push_back("Option ignorée sans --auto ni --clips-drops : --sans-analyse");
}

size_t displayWidth(const std::string& s) {
    return static_cast<size_t>(std::count_if(s.begin(), s.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string helpOf(const cli11::App& app) {
    std::string text = "quorvel " QUORVEL_VERSION " : montage multicaméra de sets DJ, synchronisé par le son.\n\n"
                       "Utilisation :\n"
                       "  quorvel [--open <dossier du set>] [options de l'application]\n"
                       "  quorvel --cli [options] [--] <dossier du set> [<sortie.xml>]\n"
                       "  quorvel --selftest [<dossier de sets générés>]\n"
                       "  quorvel --help | --version\n";
    std::vector<std::pair<std::string, std::string>> rows;
    for (const std::string& group : app.get_groups()) {
        if (group.empty()) continue;
        rows.push_back({"\n" + group + " :", ""});
        for (const cli11::Option* opt : app.get_options([&](const cli11::Option* o) { return o->get_group() == group; })) {
            std::string names;
            for (const auto& s : opt->get_snames()) names += "-" + s + ", ";
            for (const auto& l : opt->get_lnames()) names += "--" + l + ", ";
            names.resize(names.size() - 2);
            if (!opt->get_option_text().empty()) names += " " + opt->get_option_text();
            rows.push_back({"  " + names, opt->get_description()});
        }
    }
    size_t column = 0;
    for (const auto& [names, description] : rows)
        if (!description.empty()) column = std::max(column, displayWidth(names) + 2);
    for (const auto& [names, description] : rows) {
        text += names;
        if (!description.empty()) text += std::string(column - displayWidth(names), ' ') + description;
        text += "\n";
    }
    text += "\nAprès « -- », chaque mot est un chemin, même s'il commence par un tiret.\n"
            "Une option inconnue est signalée sur la sortie d'erreur, puis ignorée ; une\n"
            "valeur invalide de --codec, --loudness, --marges-drop ou --rate arrête tout\n"
            "d'emblée.\n"
            "Statut de sortie : 0 quand tout est écrit, 1 sinon. Voir aussi : man quorvel.\n";
    return text;
}

}  // namespace

CommandLine CommandLine::read(const std::vector<std::string>& arguments) {
    CommandLine line;
    cli11::App app;
    declare(app, line);

    // Before CLI11 reads the line, what it would answer in English: an
    // option that takes a value standing last (as if it were absent) and a
    // value given to an option that takes none (refused).
    std::vector<std::string> words;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (word == "--") {
            words.insert(words.end(), arguments.begin() + static_cast<long>(i), arguments.end());
            break;
        }
        // The self check takes the word behind it as its folder, whatever it
        // looks like: `--selftest --cli x y` checks the folder "--cli".
        if (word == "--selftest" && i + 1 < arguments.size() && arguments[i + 1] != "--") {
            words.push_back(word + "=" + arguments[++i]);
            continue;
        }
        const size_t equals = word.find('=');
        const cli11::Option* opt = word.starts_with("-") ? app.get_option_no_throw(word.substr(0, equals)) : nullptr;
        if (opt && equals != std::string::npos && opt->get_items_expected_max() == 0) {
            if (!line.error)
                line.error = "L'option " + word.substr(0, equals) + " ne prend pas de valeur : « " + terminalSafe(word) +
                             " »";
            continue;
        }
        if (opt && equals == std::string::npos && opt->get_items_expected_min() > 0) {
            if (i + 1 == arguments.size()) {
                line.warnings.push_back("Option sans valeur ignorée : " + word);
                continue;
            }
            words.push_back(word);  // its value follows, whatever it looks like
            words.push_back(arguments[++i]);
            continue;
        }
        words.push_back(word);
    }

    std::reverse(words.begin(), words.end());  // CLI11 reads from the back
    try {
        app.parse(words);
    } catch (const cli11::ValidationError&) {
        // `accepted` has written the French line.
    } catch (const cli11::ParseError& e) {
        if (!line.error) line.error = "Ligne de commande incomprise : " + terminalSafe(e.what());
    }
    auto given = [&app](const char* option) { return app.get_option(option)->count() > 0; };
    if (given("--help")) line.mode = Mode::help;
    else if (given("--version")) line.mode = Mode::version;
    else if (given("--selftest")) line.mode = Mode::selftest;
    else if (given("--cli")) line.mode = Mode::cli;
    for (size_t i = 2; i < line.paths.size(); ++i)
        line.warnings.push_back("Argument en trop ignoré : " + terminalSafe(line.paths[i]));
    if (line.paths.size() > 2) line.paths.resize(2);
    if (line.error) return line;

    for (const std::string& extra : app.remaining())
        line.warnings.push_back("Option inconnue ignorée : " + terminalSafe(extra));
    for (const cli11::Option* opt : app.get_options()) {
        const auto& given = opt->results();
        if (opt->get_items_expected_min() > 0 && opt->get_positional() == false)
            for (size_t i = 1; i < given.size(); ++i)
                line.warnings.push_back("Option répétée ignorée : " + opt->get_name() + " " + terminalSafe(given[i]));
    }
    warnAboutCombinations(line);
    return line;
}

std::string CommandLine::help() {
    CommandLine line;
    cli11::App app;
    declare(app, line);
    return helpOf(app);
}

std::string CommandLine::version() { return "quorvel " QUORVEL_VERSION; }

}  // namespace qv

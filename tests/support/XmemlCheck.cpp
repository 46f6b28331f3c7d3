#include "support/XmemlCheck.h"

#include <expat.h>

#include <pugixml.hpp>
#include <set>

#include "base/Text.h"

namespace qv::test {

// expat refuses what XML 1.0 refuses (bad UTF-8, control characters, stray
// markup), which the more lenient pugixml lets through.
std::string strictXmlError(const std::string& bytes) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    std::string error;
    if (XML_Parse(parser, bytes.data(), static_cast<int>(bytes.size()), 1) == XML_STATUS_ERROR)
        error = std::string(XML_ErrorString(XML_GetErrorCode(parser))) + " à la ligne " +
                std::to_string(XML_GetCurrentLineNumber(parser));
    XML_ParserFree(parser);
    return error;
}

std::vector<std::string> xmemlProblems(const std::string& bytes) {
    std::vector<std::string> problems;
    auto fault = [&](std::string what) { problems.push_back(std::move(what)); };

    if (auto error = strictXmlError(bytes); !error.empty()) {
        fault("XML mal formé : " + error);
        return problems;
    }
    if (bytes.rfind(R"(<?xml version="1.0" encoding="UTF-8"?>)", 0) != 0) fault("déclaration XML absente");
    if (bytes.find("<!DOCTYPE xmeml>") == std::string::npos) fault("DOCTYPE xmeml absent");
    for (const char* word : {">nan", ">-nan", ">inf", ">-inf", "nan<", "inf<"})
        if (bytes.find(word) != std::string::npos) fault(std::string("valeur non numérique : ") + word);

    pugi::xml_document doc;
    if (!doc.load_string(bytes.c_str(), pugi::parse_default | pugi::parse_doctype)) {
        fault("illisible par pugixml");
        return problems;
    }
    if (std::string(doc.child("xmeml").attribute("version").value()) != "4") fault("xmeml version 4 absente");
    if (!doc.select_node("/xmeml/sequence")) fault("séquence absente");

    for (const char* leaf : {"//start", "//end", "//in", "//out", "//when", "//horiz", "//vert", "//parameter/value",
                             "//duration", "//timebase"})
        for (auto n : doc.select_nodes(leaf)) {
            if (n.node().first_child().type() != pugi::node_pcdata) continue;  // centre values hold children
            if (!parseDouble(n.node().text().get()))
                fault(std::string(leaf) + " n'est pas un nombre : " + n.node().text().get());
        }

    // The names importers know for fields, pixels and time codes; drop-frame
    // exists only at 29.97 and 59.94.
    const std::set<std::string> fields{"none", "upper", "lower"};
    const std::set<std::string> pixels{"square", "NTSC-601", "PAL-601", "HD-(960x720)", "HD-(1280x1080)", "HD-(1440x1080)"};
    for (auto c : doc.select_nodes("//samplecharacteristics[width]")) {
        const pugi::xml_node n = c.node();
        if (!fields.count(n.child("fielddominance").text().get()))
            fault(std::string("fielddominance inconnue : ") + n.child("fielddominance").text().get());
        if (!pixels.count(n.child("pixelaspectratio").text().get()))
            fault(std::string("pixelaspectratio inconnu : ") + n.child("pixelaspectratio").text().get());
    }
    const pugi::xml_node timecode = doc.select_node("/xmeml/sequence/timecode").node();
    const std::string timebase = timecode.child("rate").child("timebase").text().get();
    if (std::string(timecode.child("displayformat").text().get()) == "DF" &&
        (std::string(timecode.child("rate").child("ntsc").text().get()) != "TRUE" || (timebase != "30" && timebase != "60")))
        fault("drop-frame à " + timebase + " images par seconde");

    std::set<std::string> clipIds, fileIds;
    for (auto c : doc.select_nodes("//clipitem")) {
        const pugi::xml_node n = c.node();
        const std::string id = n.attribute("id").value();
        if (!clipIds.insert(id).second) fault("clipitem en double : " + id);
        const long long start = n.child("start").text().as_llong(), end = n.child("end").text().as_llong();
        const long long in = n.child("in").text().as_llong(), out = n.child("out").text().as_llong();
        if (end - start < 1) fault(id + " : plus court qu'une image");
        if (out - in != end - start) fault(id + " : in/out et start/end n'ont pas la même longueur");
        if (in < 0) fault(id + " : in négatif");
        if (out > n.child("duration").text().as_llong()) fault(id + " : out après la fin du fichier");
        for (auto k : n.select_nodes(".//keyframe/when")) {
            const long long when = k.node().text().as_llong();
            if (when < in || when > out) fault(id + " : image clé hors du plan");
        }
        const pugi::xml_node file = n.child("file");
        if (file.child("pathurl") && !fileIds.insert(file.attribute("id").value()).second)
            fault(std::string("fichier défini deux fois : ") + file.attribute("id").value());
    }
    for (auto f : doc.select_nodes("//clipitem/file"))
        if (!fileIds.count(f.node().attribute("id").value()))
            fault(std::string("fichier jamais défini : ") + f.node().attribute("id").value());
    for (auto l : doc.select_nodes("//link/linkclipref"))
        if (!clipIds.count(l.node().text().get())) fault(std::string("lien sans plan : ") + l.node().text().get());
    return problems;
}

std::string joined(const std::vector<std::string>& problems) {
    std::string text;
    for (const auto& p : problems) text += p + "\n";
    return text;
}

}  // namespace qv::test

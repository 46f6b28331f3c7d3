#include "persistence/ProjectFile.h"

#include <gtest/gtest.h>

#include "support/TempHome.h"
#include "base/SplitMix64.h"
#include "persistence/ProjectStore.h"

using qv::ProjectFile;
using qv::Uuid;
using qv::json::Json;
namespace store = qv::ProjectStore;

namespace {

qv::MediaSource source(const std::string& name, qv::SourceKind kind) { return {Uuid::make(), name, kind, {}, {}}; }

// The same set as a fresh read of its folder would give it: new ids each time.
std::vector<qv::MediaSource> readSet(const std::string& secondCamera = "Cam 2") {
    return {source("Cam 1", qv::SourceKind::camera), source(secondCamera, qv::SourceKind::camera),
            source("Son 1", qv::SourceKind::audio)};
}

ProjectFile read(const std::string& text) {
    return ProjectFile::fromJson(*qv::json::parse(text), store::dateFromReference(1000));
}

std::string dumped(const Json& j) { return j.dump(2, ' ', false, Json::error_handler_t::replace); }

}  // namespace

TEST(ProjectFile, ReadsAnOlderFileAndLosesOnlyDamagedKeys) {
    // Everything missing takes its default: drops 15/30 s at 0.5, zoom 1, no id.
    ProjectFile expected;
    expected.folder = "/tmp/set";
    expected.savedAt = store::dateFromReference(0);  // 2001-01-01 00:00:00 UTC
    expected.cuts = {{12.5, 1, qv::PlanEffect::zoomIn, {}}};
    EXPECT_EQ(read(R"({"version":1,"folder":"/tmp/set","savedAt":0,
                       "cuts":[{"time":12.5,"camera":1,"effect":"zoomIn"}]})"),
              expected);

    // An unknown effect reads as "auto" and the cut stays.
    ProjectFile p = read(R"({"cuts":[{"time":3,"camera":2.0,"effect":"fondu","looks":"x"}]})");
    EXPECT_EQ(p.cuts, (std::vector<ProjectFile::CutData>{{3, 2, qv::PlanEffect::automatic, {}}}));
    EXPECT_EQ(p.savedAt, store::dateFromReference(1000));  // the time of reading

    // One cut without a camera empties the edit and nothing else; a damaged
    // value loses its own key.
    p = read(R"({"folder":"/s","dropPre":8,"cuts":[{"time":1,"camera":0},{"time":2}],
                 "muted":["Son 1"],"levels":{"Cam 1":"fort"},"zoomCameras":["Cam 1",3],
                 "grades":{"Cam 1":{"exposure":1},"Cam 2":7},"previewDivision":2.5,"id":5,"zoom":"x"})");
    EXPECT_TRUE(p.cuts.empty() && p.levels.empty() && p.zoomCameras.empty() && p.grades.empty());
    EXPECT_EQ(p.muted, std::vector<std::string>{"Son 1"});
    EXPECT_TRUE(p.folder == "/s" && p.dropPre == 8 && p.previewDivision == 1 && p.zoom == 1 && !p.id);
}

TEST(ProjectFile, SavedAndReadBackKeepsEveryDecision) {
    TempHome home;
    auto sources = readSet();
    const Uuid cam1 = sources[0].id, cam2 = sources[1].id, son1 = sources[2].id;

    const std::vector<ProjectFile::CutData> cuts{{0, 1, {}, {}},
                                                 {12.5, 0, qv::PlanEffect::zoomIn, {true, std::nullopt, false}},
                                                 {30.25, 1, qv::PlanEffect::shake, {}}};
    qv::EffectSettings effects;
    effects.zoomCameras = {cam1, cam2};
    effects.vhsCameras = {cam2};
    effects.zoomMax = 130;
    qv::AutoSettings autoSettings;
    autoSettings.cameras = {cam2, cam1};
    autoSettings.weights = {{cam1, 90}, {cam2, 40}};
    qv::ColorGrade grade;
    grade.exposure = 0.7, grade.saturation = 85, grade.lut = "Film.cube", grade.wheelShadows = {200, 0.3, -10};
    const qv::CameraFrame frame{1.5, 0.3, -0.2};

    ProjectFile p;
    p.id = "projet-1", p.name = "Soirée", p.folder = "/tmp/set";
    p.savedAt = store::dateFromReference(700000000.5);
    p.cuts = cuts;
    p.levels = qv::keyedByName(std::map<Uuid, double>{{cam1, -3.5}, {son1, 2.25}, {Uuid::make(), 4}}, sources);
    p.muted = qv::sourceNames({son1, cam2}, sources);
    qv::storeSettings(p, effects, autoSettings, sources);
    qv::storeCrops(p, {{cam1, frame}, {cam2, {}}}, sources);
    p.grades = qv::gradesByName({{cam1, grade}, {cam2, qv::ColorGrade::neutral}}, sources);
    p.format = qv::OutputFormat::portrait, p.inPoint = 10, p.dropSensitivity = 0.35, p.previewDivision = 2;
    EXPECT_EQ(p.levels.size(), 2u);  // the unknown source is dropped
    EXPECT_EQ(p.framing, (std::map<std::string, double>{{"Cam 1", 0.3}}));  // neutral frames are not written
    EXPECT_EQ(p.grades.size(), 1u);

    ASSERT_TRUE(store::save(p));
    TempHome::writeText(store::directory() / "liste.json", "[]");
    auto listed = store::list();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0], p);
    ASSERT_TRUE(store::latest("/tmp/./set/"));

    // Every key but an absent optional one, names sorted, numbers with a
    // point although the suite runs under a French locale.
    std::string text = TempHome::readText(store::directory() / "projet-1.json");
    Json written = *qv::json::parse(text);
    std::vector<std::string> keys;
    for (const auto& [key, value] : written.items()) keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{
                        "audio", "auto", "autoCameras", "autoWeights", "crops", "cuts", "dropPost", "dropPre",
                        "dropSensitivity", "effects", "folder", "format", "framing", "grades", "id", "inPoint",
                        "lensCameras", "levels", "muted", "name", "previewDivision", "savedAt", "shakeCameras",
                        "shutterCameras", "version", "vhsCameras", "viewStart", "zoom", "zoomCameras"}));
    ProjectFile unsorted;
    unsorted.muted = {"Son 1", "Cam 2", "Cam 10"};
    EXPECT_EQ(unsorted.toJson()["muted"], Json({"Cam 10", "Cam 2", "Son 1"}));
    EXPECT_NE(text.find("\n  \"dropSensitivity\": 0.35,\n"), std::string::npos) << text;

    // A new read of the folder gives new ids: the names bind everything again.
    auto again = readSet();
    const Uuid newCam1 = again[0].id, newCam2 = again[1].id, newSon1 = again[2].id;
    EXPECT_EQ(qv::cutData(qv::keptCuts(listed[0].cuts, again, 100)), cuts);
    EXPECT_EQ(qv::mergedLevels({}, p.levels, again), (std::map<Uuid, double>{{newCam1, -3.5}, {newSon1, 2.25}}));
    EXPECT_EQ(qv::cropsOf(p, again), (std::map<Uuid, qv::CameraFrame>{{newCam1, frame}}));
    EXPECT_EQ(qv::autoSettingsOf(p, again).weights, (std::map<Uuid, double>{{newCam1, 90}, {newCam2, 40}}));
}

TEST(ProjectFile, AChangedSetKeepsWhatStillFits) {
    // The second camera's folder was renamed, and the set is now 300 s long.
    auto sources = readSet("Cam B");
    const Uuid cam1 = sources[0].id, son1 = sources[2].id;
    ProjectFile p = read(R"({"cuts":[{"time":0,"camera":0},{"time":20,"camera":2},{"time":5,"camera":1},
                                     {"time":400,"camera":0},{"time":9,"camera":-1}],
                             "levels":{"Cam 2":-6,"Son 1":3},"muted":["Cam 2","Son 1"],
                             "framing":{"Cam 1":0.3,"Cam 2":-0.5},"crops":{},"grades":{"Cam 2":{"exposure":1}},
                             "zoomCameras":["Cam 1","Cam 2"],"autoWeights":{"Cam 2":50}})");

    auto kept = qv::keptCuts(p.cuts, sources, 300);
    EXPECT_EQ(qv::cutData(kept), (std::vector<ProjectFile::CutData>{{0, 0, {}, {}}, {5, 1, {}, {}}}));
    EXPECT_EQ(qv::mergedLevels({{son1, 1}, {cam1, -2}}, p.levels, sources),
              (std::map<Uuid, double>{{son1, 3}, {cam1, -2}}));
    EXPECT_EQ(qv::sourceIds(p.muted, sources), std::set<Uuid>{son1});
    EXPECT_EQ(qv::cropsOf(p, sources), (std::map<Uuid, qv::CameraFrame>{{cam1, {1, 0.3, 0}}}));
    EXPECT_TRUE(qv::keyedById(p.grades, sources).empty());
    EXPECT_EQ(qv::effectsOf(p, sources).zoomCameras, std::set<Uuid>{cam1});
    EXPECT_TRUE(qv::autoSettingsOf(p, sources).weights.empty());

    p.crops = {{"Cam 1", {2, 0, 0}}};  // once crops exist, the older key is ignored
    EXPECT_EQ(qv::cropsOf(p, sources).at(cam1).zoom, 2);
}

TEST(ProjectFile, CorruptedFilesNeverCrashAndLoseOnlyTheirDamage) {
    ProjectFile p = read(R"({"id":"projet-1","name":"Soirée","folder":"/tmp/set","savedAt":12.5,"inPoint":4,
        "cuts":[{"time":1,"camera":1,"effect":"shake","looks":{"vhs":true}}],"levels":{"Son 1":-2},
        "muted":["Cam 1"],"crops":{"Cam 1":{"zoom":1.4,"x":0.2,"y":0}},"grades":{"Cam 1":{"exposure":0.5}},
        "auto":{"minPlan":3,"seed":77},"autoWeights":{"Cam 2":30},"format":"9:16","previewDivision":2})");
    const Json base = p.toJson();
    const std::string text = dumped(base);
    const std::vector<Json> wrong{nullptr, true, -7, 2.5, 1e300, "texte", Json::array(), Json::object(),
                                  Json::array({1, "a"}), Json::parse("18446744073709551615")};
    const auto readAt = store::dateFromReference(1000);

    qv::SplitMix64 rng(20240611);
    for (int round = 0; round < 1000; ++round) {
        std::string damaged = text;
        std::optional<std::string> changedKey;
        if (round % 3 == 0) {
            damaged.resize(rng.next() % damaged.size());
        } else if (round % 3 == 1) {
            // Random bits mostly break the syntax; characters that mean something
            // in JSON more often give a file that parses into odd values.
            static const std::string meaningful = "0123456789.-+eE\",:[]{}tfn ";
            for (int n = 1 + rng.next() % 3; n > 0; --n) {
                char& c = damaged[rng.next() % damaged.size()];
                c = rng.next() % 4 ? meaningful[rng.next() % meaningful.size()] : char(c ^ rng.next());
            }
        } else {
            Json j = base;
            auto it = std::next(j.begin(), long(rng.next() % j.size()));
            // Sometimes one level down, so nested readers see wrong types too.
            if (it->is_object() && !it->empty() && rng.next() % 2)
                it = std::next(it->begin(), long(rng.next() % it->size()));
            else
                changedKey = it.key();
            *it = wrong[rng.next() % wrong.size()];
            damaged = j.dump();
        }
        auto doc = qv::json::parse(damaged);
        if (!doc) continue;
        ProjectFile once;
        ASSERT_NO_THROW(once = ProjectFile::fromJson(*doc, readAt)) << damaged;

        // Whatever was read writes and reads back the same.
        ProjectFile twice = ProjectFile::fromJson(*qv::json::parse(dumped(once.toJson())), readAt);
        EXPECT_NEAR(store::referenceSeconds(twice.savedAt), store::referenceSeconds(once.savedAt), 1e-3);
        twice.savedAt = once.savedAt;
        EXPECT_EQ(twice, once) << damaged;

        if (changedKey) {
            Json got = once.toJson(), expected = base;
            got.erase(*changedKey), expected.erase(*changedKey);
            EXPECT_EQ(got, expected) << *changedKey;
        }
    }
}

// The autosave's fast text is the document, byte for byte, whatever the
// cuts hold: every effect, looks set or not, awkward numbers.
TEST(ProjectFile, ItsTextIsItsDocumentByteForByte) {
    ProjectFile p;
    p.id.emplace("projet-3");
    p.name.emplace("« Soirée »");
    p.folder = "/tmp/f\xe9te";
    p.inPoint = 1e-7;
    const qv::PlanEffect effects[] = {qv::PlanEffect::automatic, qv::PlanEffect::none, qv::PlanEffect::zoomIn,
                                  qv::PlanEffect::zoomOut, qv::PlanEffect::shake};
    qv::SplitMix64 rng(7);
    for (int i = 0; i < 400; ++i) {
        ProjectFile::CutData c;
        c.time = i == 0 ? 0.0 : i == 1 ? 1e21 : i == 2 ? -0.0 : static_cast<double>(rng.next() % 100000) / 7.0;
        c.camera = static_cast<int>(rng.next() % 8);
        c.effect = effects[rng.next() % 5];
        const auto pick = [&]() -> std::optional<bool> {
            switch (rng.next() % 3) {
                case 0: return std::nullopt;
                case 1: return true;
                default: return false;
            }
        };
        c.looks = {pick(), pick(), pick()};
        p.cuts.push_back(c);
        if (i % 97 != 0) continue;
        for (int indent : {-1, 0, 2, 4})
            ASSERT_EQ(p.toText(indent), p.toJson().dump(indent, ' ', false, Json::error_handler_t::replace))
                << i << " cuts, indent " << indent;
    }
    p.cuts.clear();
    EXPECT_EQ(p.toText(2), p.toJson().dump(2, ' ', false, Json::error_handler_t::replace));
}

TEST(ProjectFile, NamesThatAreNotUtf8AreWrittenReplaced) {
    TempHome home;
    std::vector<qv::MediaSource> sources{source("Cam \xff", qv::SourceKind::camera)};
    ProjectFile p;
    p.id = "projet-2";
    p.folder = "/tmp/f\xe9te";  // a Latin-1 folder name
    qv::storeCrops(p, {{sources[0].id, {2, 0, 0}}}, sources);
    ASSERT_NO_THROW(store::save(p));
    auto listed = store::list();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0].folder, "/tmp/f\uFFFDte");
    EXPECT_EQ(listed[0].crops.count("Cam \uFFFD"), 1u);
}

// Keys newer than the first files: written only when set, read back the
// same, held to their bounds, and damage to one loses that key alone.
TEST(ProjectFile, LaterKeysOnlyWhenSetAndLostAloneWhenDamaged) {
    ProjectFile p;
    p.handPlacements = {{"Cam 1/clip 2.mp4", 61.25}, {"Son 1/rec.wav", 0}};
    p.channels = {{"Son 2", 3}, {"Son 5", 4}};
    p.pictureOffsets = {{"Cam 3", 0.05}, {"Cam 1", -0.08}};
    p.frameRate = "29.97";
    p.dropFrame = true;
    const Json j = p.toJson();
    EXPECT_EQ(j["handPlacements"], Json({{"Cam 1/clip 2.mp4", 61.25}, {"Son 1/rec.wav", 0.0}}));
    EXPECT_EQ(j["pictureOffsets"], Json({{"Cam 1", -0.08}, {"Cam 3", 0.05}}));
    EXPECT_EQ(j["frameRate"], "29.97");
    EXPECT_EQ(ProjectFile::fromJson(j, p.savedAt), p);
    // None: no key at all, so older files and newer ones read alike.
    const Json plain = ProjectFile().toJson();
    for (const char* key : {"handPlacements", "channels", "pictureOffsets", "frameRate", "dropFrame"})
        EXPECT_FALSE(plain.contains(key)) << key;

    for (const Json& wrong : {Json(-1), Json(65), Json(2.5), Json("4")}) {
        Json damaged = j;
        damaged["channels"]["Son 5"] = wrong;
        EXPECT_TRUE(ProjectFile::fromJson(damaged).channels.empty()) << wrong.dump();
    }
    Json damaged = j;
    damaged["handPlacements"]["Cam 1/clip 2.mp4"] = "loin";
    damaged["frameRate"] = 25;
    damaged["dropFrame"] = "oui";
    damaged["zoom"] = 3.0;
    const ProjectFile loaded = ProjectFile::fromJson(damaged);
    EXPECT_TRUE(loaded.handPlacements.empty());
    EXPECT_FALSE(loaded.frameRate);
    EXPECT_FALSE(loaded.dropFrame);
    EXPECT_EQ(loaded.pictureOffsets, p.pictureOffsets);
    EXPECT_EQ(loaded.channels, p.channels);
    EXPECT_EQ(loaded.zoom, 3.0);
}

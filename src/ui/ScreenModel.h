// ScreenModel: what the editing screen reads besides the edit itself, and
// the one place its widgets call: the player, the sources, the output
// format, each camera's crop and the mixing of each track. It forwards the
// edit's change callback as a Qt signal, so each widget repaints only for
// the changes it shows. Main thread only.
#pragma once

#include <QImage>
#include <QObject>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "edit/EditModel.h"
#include "effects/Reframe.h"
#include "sync/Media.h"

namespace qv::ui {

// The multi-angle player as the screens see it: the edit's questions plus
// starting, the angles' pictures and the preview's reduction.
class ScreenPlayer : public PlayerControl {
public:
    virtual void play() = 0;
    // The camera's picture at the current time; null when it has none.
    virtual QImage picture(int camera) const = 0;
    virtual int previewDivision() const = 0;  // 1 is full size
    virtual void setPreviewDivision(int division) = 0;
};

struct TrackMix {
    bool muted = false;
    double levelDb = 0;
};

// The caption of a camera's tile at time t.
struct AngleStatus {
    QString text;
    bool urgent = false;
};
AngleStatus angleStatus(const AngleInfo& angle, double t);

class ScreenModel : public QObject {
    Q_OBJECT
public:
    enum class Part { edit, format, framing, mix, panel };

    // `edit` must outlive this object; its change callback is taken over.
    ScreenModel(EditModel& edit, std::shared_ptr<ScreenPlayer> player, std::vector<MediaSource> sources);

    EditModel& edit() const { return edit_; }
    ScreenPlayer* player() const { return player_.get(); }
    const std::vector<MediaSource>& sources() const { return sources_; }
    // Source index of each camera number.
    const std::vector<int>& cameraSources() const { return cameraSources_; }
    int cameraCount() const { return int(cameraSources_.size()); }
    QString cameraName(int camera) const;
    // Pixel size of a camera's pictures (its first file with video); 1920x1080 when unknown.
    PixelSize cameraSize(int camera) const;
    // The size the program is framed into: the camera's own for a landscape
    // output, the format's fixed size otherwise.
    PixelSize outputSize(int camera) const;

    OutputFormat format() const { return format_; }
    void setFormat(OutputFormat format);
    CameraFrame framing(int camera) const;
    void setFraming(int camera, CameraFrame frame);
    bool gradeIsNeutral(int camera) const;
    void setGradeNeutral(int camera, bool neutral);
    // The camera whose crop panel is open, if any.
    std::optional<int> cropCamera() const { return cropCamera_; }
    void openCrop(int camera);
    void openGrade(int camera);
    void copyGradeToAll(int camera);
    // Whether a tile draws its crop window.
    bool showsCropWindow(int camera) const;

    TrackMix mix(int source) const;
    void toggleMute(int source);
    void applyAudio(int source, double levelDb);

signals:
    void changed(qv::ui::ScreenModel::Part part, int editChange);

private:
    EditModel& edit_;
    std::shared_ptr<ScreenPlayer> player_;
    std::vector<MediaSource> sources_;
    std::vector<int> cameraSources_;
    OutputFormat format_ = OutputFormat::landscape;
    std::map<int, CameraFrame> frames_;
    std::map<int, bool> gradeNeutral_;
    std::optional<int> cropCamera_;
    std::map<int, TrackMix> mix_;
};

}  // namespace qv::ui

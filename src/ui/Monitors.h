// Monitors: the program monitor (58 % of the width) beside the grid of
// camera tiles. The program shows the camera of the plan under the play
// head, framed in the output format, moving with the plan's zoom or shake;
// each tile shows its angle, its captions on plates and, where the output
// crops a picture, the window the output keeps, which can be dragged. Main
// thread only.
#pragma once

#include <QFont>
#include <QWidget>
#include <optional>

#include "ui/ScreenModel.h"

namespace qv::ui {

struct TileLayout {
    int columns = 1;
    int rows = 1;
    double tileWidth = 0;
    double tileHeight = 0;
    bool wide = false;  // larger captions above 230 points
};

// Where a tile's captions stand, each on its own dark plate so that it reads
// over any picture (rushes often carry burnt-in text) and none covers
// another. An empty rectangle is a caption the tile does not show.
struct TileCaptions {
    QRectF number;     // the camera number, top left
    QRectF programme;  // "PROGRAMME" on the active camera: top right, else under the number
    QRectF status;     // the countdown, bottom left
    QRectF name;       // the camera's name, bottom right, when there is room beside the countdown
    QString statusText;  // broken onto two lines in a narrow tile
    QString nameText;    // elided to its plate
    QFont programmeFont;  // its letters closer in a small tile
    QRectF symbol;        // the no-picture symbol, clear of the plates; empty when there is no room
};

namespace Monitors {

constexpr double spacing = 8;
constexpr double programShare = 0.58;
constexpr double wideThreshold = 230;

// The column count (1 to 4) giving the largest 16:9 tile for n cameras in
// the zone; the smaller count wins a tie.
TileLayout tileLayout(int cameras, double width, double height);

// The captions of one tile; `status` or `name` may be empty.
TileCaptions tileCaptions(const QRectF& tile, bool wide, int camera, bool active, const QString& status,
                          const QString& name);

// What the plan carries, as the program monitor labels it: "ZOOM AVANT + VHS".
QString effectLabel(const ResolvedEffect& effect);

}  // namespace Monitors

class MonitorsView : public QWidget {
    Q_OBJECT
public:
    explicit MonitorsView(ScreenModel& model, QWidget* parent = nullptr);

    QRectF programRect() const;
    QRectF gridRect() const;
    QRectF tileRect(int camera) const;
    // The part of a tile's picture the output keeps.
    QRectF cropWindow(int camera) const;
    // Whether the tile shows that window: the format or the crop asks for
    // it, whether or not the camera has a picture at the present time.
    bool drawsCropWindow(int camera) const;
    TileLayout layout() const;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    bool event(QEvent* event) override;

private:
    void paintProgram(QPainter& p);
    void paintTile(QPainter& p, int camera, const TileLayout& layout, int active);
    std::optional<int> tileAt(QPointF pos) const;

    ScreenModel& model_;
    std::optional<int> dragCamera_;
    std::optional<CameraFrame> dragFrame_;  // the crop when the drag began
    QPointF pressPos_;
    bool moved_ = false;
};

}  // namespace qv::ui

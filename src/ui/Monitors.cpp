#include "ui/Monitors.h"

#include <QContextMenuEvent>
#include <QHelpEvent>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>
#include <cmath>

#include "effects/MotionFX.h"
#include "ui/Theme.h"

namespace qv::ui {

namespace Monitors {

TileLayout tileLayout(int cameras, double width, double height) {
    const int n = std::max(1, cameras);
    TileLayout best;
    best.tileWidth = -1;
    for (int c = 1; c <= std::min(n, 4); ++c) {
        const int r = (n + c - 1) / c;
        const double byColumns = (width - spacing * (c - 1)) / c;
        const double byRows = ((height - spacing * (r - 1)) / r) * 16 / 9;
        const double w = std::min(byColumns, byRows);
        if (w > best.tileWidth) best = {c, r, w, 0, false};
    }
    best.tileWidth = std::max(0.0, best.tileWidth);
    best.tileHeight = best.tileWidth * 9 / 16;
    best.wide = best.tileWidth > wideThreshold;
    return best;
}

QString effectLabel(const ResolvedEffect& fx) {
    QStringList parts;
    if (fx.zoom > 0) parts << QStringLiteral("ZOOM AVANT");
    if (fx.zoom < 0) parts << QStringLiteral("ZOOM ARRIÈRE");
    if (fx.shake) parts << QStringLiteral("ÉPAULE");
    if (fx.lens) parts << QStringLiteral("FLOU OBJECTIF");
    if (fx.shutter) parts << QStringLiteral("FLOU MOUVEMENT");
    if (fx.vhs) parts << QStringLiteral("VHS");
    return parts.join(QStringLiteral(" + "));
}

}  // namespace Monitors

namespace {

constexpr double margin = 12;

// Caption faces of the tiles; the larger sizes in wide tiles.
QFont numberFont(bool wide) { return Theme::numbers(wide ? 22 : 18); }
QFont tagFont(bool tight) { return Theme::text(9, Theme::Weight::bold, tight ? 0 : 1.2); }
QFont statusFont(bool wide) { return Theme::text(wide ? 10 : 9, Theme::Weight::semibold, 1.0); }
QFont nameFont(bool wide) { return Theme::text(wide ? 10 : 9, Theme::Weight::medium); }

// The plates under captions: dark enough that burnt-in text beneath cannot
// be read through them.
QColor plateColor() { return Theme::withAlpha(Theme::paper(), 0.94); }

void drawPlate(QPainter& p, const QRectF& r, const QColor& fill) {
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawRoundedRect(r, 3, 3);
}

// Breaks `text` at its separators into lines no wider than `width` where it can.
QStringList wrapped(const QString& text, const QFontMetricsF& fm, double width, const QString& separator) {
    QStringList lines;
    for (const QString& word : text.split(separator)) {
        if (!lines.isEmpty() && fm.horizontalAdvance(lines.last() + separator + word) <= width)
            lines.last() += separator + word;
        else
            lines << word;
    }
    return lines;
}

QRectF fitted(QSizeF content, const QRectF& box) {
    if (content.isEmpty()) return box;
    QSizeF s = content.scaled(box.size(), Qt::KeepAspectRatio);
    return {box.center().x() - s.width() / 2, box.center().y() - s.height() / 2, s.width(), s.height()};
}

// The surface of a tile without picture.
const QColor noPicture(0x14, 0x14, 0x13);

}  // namespace

namespace Monitors {

TileCaptions tileCaptions(const QRectF& tile, bool wide, int camera, bool active, const QString& status,
                          const QString& name) {
    TileCaptions c;
    // Margins shrink with the tile: eight cameras beside a side panel leave tiles about 106 × 60.
    const double roomy = std::clamp((tile.width() - 100) / 130, 0.0, 1.0);
    const double inset = 4 + 4 * roomy, gap = 3 + roomy, pad = 4 + 3 * roomy, numberPad = 3 + 2 * roomy;
    const double room = tile.width() - 2 * inset;

    const QFontMetricsF numbers(numberFont(wide));
    const QString number = QString::number(camera + 1);
    c.number = QRectF(tile.left() + inset, tile.top() + inset, numbers.horizontalAdvance(number) + 2 * pad,
                      numbers.capHeight() + 2 * numberPad);
    c.programmeFont = tagFont(false);
    if (active) {
        // Top right; in a small tile with its letters closer; under the number as a last resort.
        auto placed = [&](const QFont& font, double padding) {
            const double w = QFontMetricsF(font).horizontalAdvance(QStringLiteral("PROGRAMME")) + padding;
            return QRectF(tile.right() - inset - w, tile.top() + inset, w, 16);
        };
        c.programme = placed(c.programmeFont, 10);
        if (c.programme.left() < c.number.right() + gap) {
            c.programmeFont = tagFont(true);
            c.programme = placed(c.programmeFont, 8);
        }
        if (c.programme.left() < c.number.right() + gap)
            c.programme.moveTopLeft({c.number.left(), c.number.bottom() + gap});
    }
    const double topRow = std::max(c.number.bottom(), c.programme.isEmpty() ? 0.0 : c.programme.bottom());

    const QFontMetricsF fm(statusFont(wide));
    const double lineHeight = fm.ascent() + fm.descent();
    double statusRight = tile.left() + inset - gap;
    if (!status.isEmpty()) {
        // Too long for one line, the countdown goes under its words if the tile is tall enough.
        QStringList lines{status};
        if (fm.horizontalAdvance(status) > room - 2 * pad) {
            const qsizetype cut = status.lastIndexOf(' ');
            if (cut > 0 && tile.bottom() - inset - (2 * lineHeight + 4) >= topRow + gap)
                lines = QStringList{status.left(cut), status.mid(cut + 1)};
            for (QString& l : lines) l = fm.elidedText(l, Qt::ElideRight, room - 2 * pad);
        }
        double width = 0;
        for (const QString& l : lines) width = std::max(width, fm.horizontalAdvance(l));
        const double height = double(lines.size()) * lineHeight + 4;
        c.status = QRectF(tile.left() + inset, tile.bottom() - inset - height, width + 2 * pad, height);
        c.statusText = lines.join('\n');
        statusRight = c.status.right();
    }
    const QFontMetricsF names(nameFont(wide));
    const double nameRoom = tile.right() - inset - (statusRight + gap) - 2 * pad;
    // A name cut below three letters says nothing the number does not.
    if (!name.isEmpty() && nameRoom >= names.horizontalAdvance(QStringLiteral("Cam"))) {
        c.nameText = names.elidedText(name, Qt::ElideRight, nameRoom);
        const double width = names.horizontalAdvance(c.nameText) + 2 * pad, height = lineHeight + 4;
        c.name = QRectF(tile.right() - inset - width, tile.bottom() - inset - height, width, height);
    }
    // The no-picture symbol: the tile's centre, else the free end of the top row.
    const double side = 20;
    c.symbol = QRectF(tile.center().x() - side / 2, tile.center().y() - side / 2, side, side);
    if (c.symbol.intersects(c.number) || c.symbol.intersects(c.programme) || c.symbol.intersects(c.status) ||
        c.symbol.intersects(c.name)) {
        const double left = c.number.right() + gap;
        const double right = c.programme.isEmpty() || c.programme.top() > c.number.top() ? tile.right() - inset
                                                                                          : c.programme.left() - gap;
        c.symbol = right - left >= side ? QRectF((left + right - side) / 2, c.number.center().y() - side / 2, side, side)
                                        : QRectF();
    }
    return c;
}

}  // namespace Monitors

MonitorsView::MonitorsView(ScreenModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    connect(&model_, &ScreenModel::changed, this, [this] { update(); });
}

QRectF MonitorsView::programRect() const {
    return {margin, margin, width() * Monitors::programShare - margin * 1.5, height() - 2 * margin};
}

QRectF MonitorsView::gridRect() const {
    const double left = width() * Monitors::programShare + margin * 0.5;
    return {left, margin, width() - left - margin, height() - 2 * margin};
}

TileLayout MonitorsView::layout() const {
    const QRectF g = gridRect();
    return Monitors::tileLayout(model_.cameraCount(), g.width(), g.height());
}

QRectF MonitorsView::tileRect(int camera) const {
    const TileLayout l = layout();
    const QRectF g = gridRect();
    const double blockW = l.columns * l.tileWidth + (l.columns - 1) * Monitors::spacing;
    const double blockH = l.rows * l.tileHeight + (l.rows - 1) * Monitors::spacing;
    const double left = g.left() + (g.width() - blockW) / 2, top = g.top() + (g.height() - blockH) / 2;
    const int row = camera / l.columns, col = camera % l.columns;
    return {left + col * (l.tileWidth + Monitors::spacing), top + row * (l.tileHeight + Monitors::spacing),
            l.tileWidth, l.tileHeight};
}

QRectF MonitorsView::cropWindow(int camera) const {
    const PixelSize src = model_.cameraSize(camera), out = model_.outputSize(camera);
    const QRectF pic = fitted(QSizeF(src.width, src.height), tileRect(camera));
    const Reframe::Placement pl = Reframe::place(src, out, model_.framing(camera));
    // The output's centre falls at this fraction of the source.
    const double cx = 0.5 - pl.x * out.width / (pl.scale * src.width);
    const double cy = 0.5 - pl.y * out.height / (pl.scale * src.height);
    return {pic.left() + (cx - pl.windowWidth / 2) * pic.width(), pic.top() + (cy - pl.windowHeight / 2) * pic.height(),
            pl.windowWidth * pic.width(), pl.windowHeight * pic.height()};
}

bool MonitorsView::drawsCropWindow(int camera) const {
    // A tile without picture keeps its window too: the crop belongs to the
    // camera, and the user sees where it will fall once the camera films.
    return camera >= 0 && camera < model_.cameraCount() && model_.showsCropWindow(camera);
}

void MonitorsView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), Theme::paper());
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    paintProgram(p);
    const TileLayout l = layout();
    const PlayerControl* player = model_.player();
    const int active = player ? model_.edit().activeCamera(player->currentTime()) : 0;
    for (int c = 0; c < std::max(1, model_.cameraCount()); ++c) paintTile(p, c, l, active);
}

void MonitorsView::paintProgram(QPainter& p) {
    const EditModel& e = model_.edit();
    AppPlayer* player = model_.player();
    const QRectF zone = programRect();
    p.fillRect(zone, QColor(0x07, 0x07, 0x07));
    if (!player) return;
    const double t = player->currentTime();
    const auto index = e.segmentIndex(t);
    const auto& plans = e.segments();
    const int camera = index ? plans[size_t(*index)].camera : 0;
    const PixelSize out = model_.outputSize(camera);
    const QRectF frame = fitted(QSizeF(out.width, out.height), zone.adjusted(0, 0, 0, -0));
    p.fillRect(frame, Qt::black);

    const bool feed = e.hasFeed(camera, t);
    const QImage picture = feed ? model_.picture(camera) : QImage();
    ResolvedEffect fx;
    if (index) {
        const Segment& s = plans[size_t(*index)];
        fx = e.resolvedEffect(s);
        if (!picture.isNull()) {
            const PixelSize src{double(picture.width()), double(picture.height())};
            const PixelSize nominal = model_.cameraSize(camera);
            const Reframe::Placement pl = Reframe::place(nominal, out, model_.framing(camera));
            const MotionSample m = MotionFX::sample(fx, t - s.start, s.end - s.start, e.effects());
            const double k = frame.width() / out.width;
            p.save();
            p.setClipRect(frame);
            p.translate(frame.center());
            p.translate(m.x * frame.width(), m.y * frame.height());
            p.rotate(m.rotation);
            p.scale(m.scale, m.scale);
            const double w = nominal.width * pl.scale * k, h = nominal.height * pl.scale * k;
            const QRectF target(pl.x * frame.width() - w / 2, pl.y * frame.height() - h / 2, w, h);
            p.drawImage(target, picture, QRectF(0, 0, src.width, src.height));
            p.restore();
        }
    }
    if (!feed) {
        p.fillRect(frame, QColor(0x10, 0x10, 0x0f));
        // Wrapped to the frame, which is narrow in the vertical formats.
        const QRectF box = frame.adjusted(12, 0, -12, 0);
        const QFont title = Theme::numbers(15), hint = Theme::text(11);
        const int flags = Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap;
        const QString titleText = QStringLiteral("CETTE CAMÉRA N'A PAS DE FLUX ICI");
        const QString hintText = QStringLiteral("Choisis une autre caméra (1 à 8).");
        const QRectF titleSize = QFontMetricsF(title).boundingRect(box, flags, titleText);
        const QRectF hintSize = QFontMetricsF(hint).boundingRect(box, flags, hintText);
        const double symbol = 40, gap = 6;
        double y = frame.center().y() - (symbol + titleSize.height() + hintSize.height() + 2 * gap) / 2;
        Theme::drawSymbol(p, QRectF(frame.center().x() - 30, y, 60, symbol), "video.slash.fill", 22, Theme::gray3());
        y += symbol + gap;
        p.setFont(title);
        p.setPen(Theme::gray1());
        p.drawText(QRectF(box.left(), y, box.width(), titleSize.height()), flags, titleText);
        y += titleSize.height() + gap;
        p.setFont(hint);
        p.setPen(Theme::gray3());
        p.drawText(QRectF(box.left(), y, box.width(), hintSize.height()), flags, hintText);
    }
    // Camera number, the word and the output format on one plate, so they
    // read on any picture, burnt-in text and the VHS look's own included.
    const QFont numberFace = Theme::numbers(22), word = Theme::text(10, Theme::Weight::bold, 1.6),
                formatFace = Theme::numbers(10);
    const QString number = QString::number(camera + 1), programme = QStringLiteral("PROGRAMME");
    const QString format =
        QStringLiteral("%1 · %2×%3").arg(rawValue(model_.format())).arg(int(out.width)).arg(int(out.height));
    const QFontMetricsF nf(numberFace), wf(word), ff(formatFace);
    const double numberWidth = nf.horizontalAdvance(number) + 8;
    const double plateWidth =
        10 + std::max(numberWidth + wf.horizontalAdvance(programme), ff.horizontalAdvance(format)) + 12;
    const QRectF plate(frame.left() + 10, frame.top() + 10, plateWidth, 52);
    drawPlate(p, plate, plateColor());
    const QRectF top(plate.left() + 10, plate.top() + 4, plate.width() - 20, 28);
    p.setFont(numberFace);
    p.setPen(Theme::accent());
    p.drawText(top, Qt::AlignVCenter | Qt::AlignLeft, number);
    p.setFont(word);
    p.setPen(Theme::ink());
    p.drawText(top.adjusted(numberWidth, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft, programme);
    p.setFont(formatFace);
    p.setPen(Theme::gray2());
    p.drawText(QRectF(top.left(), top.bottom(), top.width(), plate.bottom() - 4 - top.bottom()),
               Qt::AlignVCenter | Qt::AlignLeft, format);

    const QString label = Monitors::effectLabel(fx);
    if (!label.isEmpty() && feed) {
        // Top right, or under the plate when the frame is too narrow for both;
        // broken between effects, and its letters closer, when even the
        // frame's width is too little.
        const double room = frame.width() - 20;
        QFont f;
        QStringList lines;
        double w = 0;
        for (const QFont& face : {Theme::text(10, Theme::Weight::bold, 1.4), Theme::text(10, Theme::Weight::bold),
                                  Theme::text(9, Theme::Weight::bold)}) {
            const QFontMetricsF fm(face);
            f = face;
            lines = wrapped(label, fm, room - 20, QStringLiteral(" + "));
            for (qsizetype i = 0; i + 1 < lines.size(); ++i) lines[i] += QStringLiteral(" +");
            w = 0;
            for (const QString& l : lines) w = std::max(w, fm.horizontalAdvance(l) + 20);
            if (w <= room) break;
        }
        const QFontMetricsF fm(f);
        const double h = double(lines.size()) * (fm.ascent() + fm.descent()) + 10;
        QRectF pill(frame.right() - 10 - w, frame.top() + 14, w, h);
        if (pill.left() < plate.right() + 10) pill = QRectF(plate.left(), plate.bottom() + 8, w, h);
        drawPlate(p, pill, Theme::accent());
        p.setFont(f);
        p.setPen(Theme::paper());
        p.drawText(pill, Qt::AlignCenter, lines.join('\n'));
    }
}

void MonitorsView::paintTile(QPainter& p, int camera, const TileLayout& l, int active) {
    const QRectF r = tileRect(camera);
    AppPlayer* player = model_.player();
    const double t = player ? player->currentTime() : 0;
    const bool hasAngle = player && camera < int(player->angles().size());
    const QImage picture = hasAngle && model_.edit().hasFeed(camera, t) ? model_.picture(camera) : QImage();
    p.save();
    QPainterPath clip;
    clip.addRoundedRect(r, 4, 4);
    p.setClipPath(clip);
    p.fillRect(r, Qt::black);
    if (!picture.isNull()) {
        const PixelSize s = model_.cameraSize(camera);
        p.drawImage(fitted(QSizeF(s.width, s.height), r), picture);
    } else {
        p.fillRect(r, noPicture);
    }
    if (drawsCropWindow(camera)) {
        const QRectF w = cropWindow(camera);
        QPainterPath outside;
        outside.addRect(r);
        QPainterPath inside;
        inside.addRect(w);
        p.fillPath(outside.subtracted(inside), QColor(0, 0, 0, 153));
        p.setPen(QPen(Theme::accent(), 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRect(w.adjusted(0.75, 0.75, -0.75, -0.75));
    }

    AngleStatus st;
    if (hasAngle)
        st = angleStatus(player->angles()[size_t(camera)], t);
    else if (camera < model_.cameraCount())
        st = {"NON CALÉE", false};
    const bool isActive = camera == active;
    const TileCaptions c = Monitors::tileCaptions(r, l.wide, camera, isActive, QString::fromStdString(st.text),
                                                  camera < model_.cameraCount() ? model_.cameraName(camera) : QString());
    if (picture.isNull() && !c.symbol.isEmpty())
        Theme::drawSymbol(p, c.symbol, "video.slash.fill", 16, Theme::gray4());
    drawPlate(p, c.number, plateColor());
    p.setFont(numberFont(l.wide));
    p.setPen(isActive ? Theme::accent() : Theme::ink());
    p.drawText(c.number, Qt::AlignCenter, QString::number(camera + 1));
    if (!c.programme.isEmpty()) {
        drawPlate(p, c.programme, Theme::accent());
        p.setFont(c.programmeFont);
        p.setPen(Theme::paper());
        p.drawText(c.programme, Qt::AlignCenter, QStringLiteral("PROGRAMME"));
    }
    if (!c.status.isEmpty()) {
        drawPlate(p, c.status, plateColor());
        p.setFont(statusFont(l.wide));
        p.setPen(st.urgent ? Theme::warning() : Theme::gray1());
        p.drawText(c.status, Qt::AlignCenter, c.statusText);
    }
    if (!c.name.isEmpty()) {
        drawPlate(p, c.name, plateColor());
        p.setFont(nameFont(l.wide));
        p.setPen(Theme::gray2());
        p.drawText(c.name, Qt::AlignCenter, c.nameText);
    }
    p.restore();
    p.setBrush(Qt::NoBrush);
    if (isActive) {
        p.setPen(QPen(Theme::accent(), 2));
        p.drawRoundedRect(r.adjusted(1, 1, -1, -1), 4, 4);
    } else {
        p.setPen(QPen(Theme::line(), 1));
        p.drawRoundedRect(r.adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
    }
}

std::optional<int> MonitorsView::tileAt(QPointF pos) const {
    for (int c = 0; c < model_.cameraCount(); ++c)
        if (tileRect(c).contains(pos)) return c;
    return std::nullopt;
}

void MonitorsView::mousePressEvent(QMouseEvent* ev) {
    if (ev->button() != Qt::LeftButton) return;
    const auto camera = tileAt(ev->position());
    if (!camera) return;
    dragCamera_ = camera;
    pressPos_ = ev->position();
    moved_ = false;
}

void MonitorsView::mouseMoveEvent(QMouseEvent* ev) {
    if (!dragCamera_) {
        const auto camera = tileAt(ev->position());
        const bool inWindow = camera && drawsCropWindow(*camera) && cropWindow(*camera).contains(ev->position());
        setCursor(inWindow ? Qt::OpenHandCursor : camera ? Qt::PointingHandCursor : Qt::ArrowCursor);
        return;
    }
    const int camera = *dragCamera_;
    const QPointF d = ev->position() - pressPos_;
    if (!moved_ && d.manhattanLength() < 3) return;
    if (!moved_) {
        moved_ = true;
        if (drawsCropWindow(camera) && cropWindow(camera).contains(pressPos_)) dragFrame_ = model_.framing(camera);
    }
    if (!dragFrame_) return;
    const QRectF r = tileRect(camera);
    model_.setFraming(camera, {dragFrame_->zoom, dragFrame_->x + d.x() / r.width(), dragFrame_->y + d.y() / r.height()});
}

void MonitorsView::mouseReleaseEvent(QMouseEvent* ev) {
    if (dragCamera_ && !moved_ && tileRect(*dragCamera_).contains(ev->position())) model_.edit().pressCamera(*dragCamera_);
    dragCamera_.reset();
    dragFrame_.reset();
    moved_ = false;
}

void MonitorsView::contextMenuEvent(QContextMenuEvent* ev) {
    const auto cam = tileAt(ev->pos());
    if (!cam) return;
    const int camera = *cam;
    const QString name = model_.cameraName(camera);
    QMenu menu(this);
    menu.addAction(QStringLiteral("Recadrer %1…").arg(name), this, [this, camera] { model_.openCrop(camera); });
    menu.addAction(QStringLiteral("Étalonner %1…").arg(name), this, [this, camera] { model_.openGrade(camera); });
    QAction* reset = menu.addAction(QStringLiteral("Remettre le recadrage à zéro"), this,
                                    [this, camera] { model_.app().resetCrop(camera); });
    reset->setEnabled(!model_.framing(camera).isNeutral());
    QAction* copy = menu.addAction(QStringLiteral("Copier son étalonnage sur toutes les caméras"), this,
                                   [this, camera] { model_.app().copyGradeToAll(camera); });
    copy->setEnabled(!model_.gradeIsNeutral(camera));
    menu.exec(ev->globalPos());
}

bool MonitorsView::event(QEvent* ev) {
    if (ev->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(ev);
        const auto camera = tileAt(help->pos());
        if (!camera) {
            QToolTip::hideText();
            return true;
        }
        QString text;
        if (drawsCropWindow(*camera) && cropWindow(*camera).contains(help->pos())) {
            text = QStringLiteral("Glisse pour choisir la partie de l'image gardée · clic droit › Recadrer pour le zoom et les positions");
        } else {
            const bool playing = model_.player() && model_.player()->isPlaying();
            text = QStringLiteral("Touche %1 ou clic : %2 · clic droit : recadrer, étalonner")
                       .arg(*camera + 1)
                       .arg(playing ? QStringLiteral("couper sur cette caméra")
                                    : QStringLiteral("mettre cette caméra sur le plan"));
        }
        QToolTip::showText(help->globalPos(), text, this);
        return true;
    }
    return QWidget::event(ev);
}

}  // namespace qv::ui

#include "app_icons.h"

#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>

namespace tavrin::icons {

namespace {

// Draws at whatever size and pixel ratio is asked for, so the fallback stays sharp.
class DrawnIconEngine final : public QIconEngine {
public:
    using Draw = void (*)(QPainter&, const QRectF&, const QColor&, const QString&);
    DrawnIconEngine(Draw draw, QColor color, QString text) : draw_(draw), color_(color), text_(std::move(text)) {}
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        QColor color = color_;
        if (mode == QIcon::Disabled) color.setAlpha(110);
        draw_(*painter, QRectF(rect).adjusted(0.5, 0.5, -0.5, -0.5), color, text_);
        painter->restore();
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pm(size);
        pm.fill(Qt::transparent);
        QPainter p(&pm);
        paint(&p, QRect(QPoint(0, 0), size), mode, state);
        return pm;
    }
    QIconEngine* clone() const override { return new DrawnIconEngine(draw_, color_, text_); }

private:
    Draw draw_;
    QColor color_;
    QString text_;
};

void drawDocument(QPainter& p, const QRectF& r, const QColor& color, const QString& label) {
    const qreal w = r.height() * 0.78;
    QRectF page(r.center().x() - w / 2, r.top(), w, r.height());
    const qreal fold = w * 0.3;
    QPainterPath path;
    path.moveTo(page.topLeft());
    path.lineTo(page.right() - fold, page.top());
    path.lineTo(page.right(), page.top() + fold);
    path.lineTo(page.bottomRight());
    path.lineTo(page.bottomLeft());
    path.closeSubpath();
    p.setPen(QPen(QColor(120, 120, 130), std::max<qreal>(1.0, r.height() / 24)));
    p.setBrush(Qt::white);
    p.drawPath(path);
    QRectF band(page.left(), page.top() + page.height() * 0.52, page.width(), page.height() * 0.3);
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawRect(band);
    if (r.height() >= 14) {
        QFont font = p.font();
        font.setBold(true);
        font.setPixelSize(std::max(5, static_cast<int>(band.height() * 0.8)));
        p.setFont(font);
        p.setPen(Qt::white);
        p.drawText(band, Qt::AlignCenter, label);
    }
}

void drawBadge(QPainter& p, const QRectF& r, const QColor& color, const QString& glyph) {
    const qreal d = std::min(r.width(), r.height()) * 0.92;
    QRectF circle(r.center().x() - d / 2, r.center().y() - d / 2, d, d);
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawEllipse(circle);
    QFont font = p.font();
    font.setBold(true);
    font.setPixelSize(std::max(6, static_cast<int>(d * 0.68)));
    p.setFont(font);
    p.setPen(Qt::white);
    p.drawText(circle, Qt::AlignCenter, glyph);
}

QIcon drawn(DrawnIconEngine::Draw draw, QColor color, QString text) {
    return QIcon(new DrawnIconEngine(draw, color, std::move(text)));
}

}  // namespace

QIcon named(const char* themeName, QIcon fallback) {
    QIcon themed = QIcon::fromTheme(QString::fromLatin1(themeName));
    return themed.isNull() ? fallback : themed;
}

QIcon fileType(FileType type) {
    QString label = QString::fromLatin1(rawValue(type).data(), static_cast<int>(rawValue(type).size())).toUpper().left(4);
    switch (category(type)) {
        case FileTypeCategory::image: return named("image-x-generic", drawn(drawDocument, QColor(46, 139, 87), label));
        case FileTypeCategory::document: return named("application-pdf", drawn(drawDocument, QColor(200, 50, 45), label));
        case FileTypeCategory::officeDocument:
        case FileTypeCategory::legacyOfficeDocument:
            return named("x-office-document", drawn(drawDocument, QColor(40, 90, 180), label));
        case FileTypeCategory::video: return named("video-x-generic", drawn(drawDocument, QColor(120, 60, 160), label));
        case FileTypeCategory::audio: return named("audio-x-generic", drawn(drawDocument, QColor(210, 120, 20), label));
    }
    return drawn(drawDocument, Qt::gray, label);
}

QIcon status(QueuedFile::Status s) {
    switch (s) {
        case QueuedFile::Status::staged: return drawn(drawBadge, QColor(130, 130, 140), QStringLiteral("+"));
        case QueuedFile::Status::configured: return drawn(drawBadge, QColor(40, 110, 200), QStringLiteral("✓"));
        case QueuedFile::Status::processing: return drawn(drawBadge, QColor(220, 150, 20), QStringLiteral("…"));
        case QueuedFile::Status::completed: return drawn(drawBadge, QColor(35, 150, 80), QStringLiteral("✓"));
        case QueuedFile::Status::clean: return drawn(drawBadge, QColor(20, 120, 70), QStringLiteral("✓"));
        case QueuedFile::Status::failed: return named("dialog-warning", drawn(drawBadge, QColor(200, 45, 40), QStringLiteral("!")));
    }
    return {};
}

QIcon privacy(PrivacyLevel level) {
    switch (level) {
        case PrivacyLevel::low: return drawn(drawBadge, QColor(120, 160, 120), QStringLiteral("L"));
        case PrivacyLevel::medium: return drawn(drawBadge, QColor(215, 160, 30), QStringLiteral("M"));
        case PrivacyLevel::high: return drawn(drawBadge, QColor(225, 100, 30), QStringLiteral("H"));
        case PrivacyLevel::critical: return drawn(drawBadge, QColor(200, 40, 40), QStringLiteral("!"));
    }
    return {};
}

QIcon verified() { return drawn(drawBadge, QColor(30, 140, 75), QStringLiteral("✓")); }

}  // namespace tavrin::icons

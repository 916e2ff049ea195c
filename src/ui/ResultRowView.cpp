#include "ui/ResultRowView.h"

#include "core/ShortcutURL.h"
#include "core/UnicodeQt.h"
#include "platform/Platform.h"
#include "ui/Palette.h"

#include <QApplication>
#include <QIcon>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QSet>
#include <QStyle>

namespace pindle::ui {
namespace {

constexpr int highlightInsetX = 8;
constexpr int highlightInsetY = 1;
constexpr qreal highlightRadius = 7;
constexpr int iconLeading = 16;
constexpr int iconSize = 32;
constexpr int titleGap = 12;
constexpr int textTrailing = 16;
constexpr int subtitleGap = 1;
constexpr int titlePixelSize = 16;
constexpr int subtitlePixelSize = 12;

QFont systemFont(int pixelSize, QFont::Weight weight = QFont::Normal)
{
    QFont font = QApplication::font();
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

} // namespace

// The file's icon, drawn at paint time so it stays crisp at any scale.
class IconView : public QWidget
{
public:
    explicit IconView(QWidget *parent) : QWidget(parent)
    {
        setObjectName(QStringLiteral("iconView"));
        setAttribute(Qt::WA_TransparentForMouseEvents);
    }

    void setIcon(const QIcon &icon)
    {
        m_icon = icon.isNull() ? style()->standardIcon(QStyle::SP_FileIcon) : icon;
        update();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        m_icon.paint(&painter, rect(), Qt::AlignCenter);
    }

private:
    QIcon m_icon;
};

// A one-line label that cuts its text at the tail with an ellipsis instead of growing.
class ElidedLabel : public QWidget
{
public:
    ElidedLabel(const QString &objectName, QWidget *parent) : QWidget(parent)
    {
        setObjectName(objectName);
        setAttribute(Qt::WA_TransparentForMouseEvents);
    }

    QString text() const { return m_text; }
    void setText(const QString &text)
    {
        m_text = text;
        update();
    }
    QSize sizeHint() const override
    {
        return {fontMetrics().horizontalAdvance(m_text), fontMetrics().height()};
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setPen(palette().color(QPalette::PlaceholderText));
        const QString shown = fontMetrics().elidedText(m_text, Qt::ElideRight, width());
        painter.drawText(rect(), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, shown);
    }

private:
    QString m_text;
};

// The title: regular text in the label colour with the matched characters bold in the accent
// colour. The colours come from the palette when painting, so a theme change reaches rows
// already on screen.
class TitleLabel : public QWidget
{
public:
    explicit TitleLabel(QWidget *parent) : QWidget(parent)
    {
        setObjectName(QStringLiteral("titleLabel"));
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setFont(systemFont(titlePixelSize));
    }

    QString text() const { return m_text; }
    const QList<ResultRowView::TitleRange> &ranges() const { return m_ranges; }
    void setTitle(const QString &text, const QList<ResultRowView::TitleRange> &ranges)
    {
        m_text = text;
        m_ranges = ranges;
        update();
    }
    QSize sizeHint() const override
    {
        return {QFontMetrics(systemFont(titlePixelSize, QFont::Bold)).horizontalAdvance(m_text),
                QFontMetrics(systemFont(titlePixelSize, QFont::Bold)).height()};
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        QList<QTextLayout::FormatRange> formats =
            ResultRowView::attributedTitle(m_text, m_ranges, palette());
        QTextLayout layout(m_text, font());
        if (!fits(layout, formats)) {
            const qsizetype cut = cutPosition(layout);
            const QString ellipsis(QChar(0x2026));
            // The first format covers the whole title; it stretches over the ellipsis too.
            QList<QTextLayout::FormatRange> clipped{formats.first()};
            clipped.first().length = int(cut + ellipsis.size());
            for (QTextLayout::FormatRange range : formats.sliced(1)) {
                if (range.start >= cut)
                    continue;
                range.length = std::min(range.length, int(cut) - range.start);
                clipped.append(range);
            }
            layout.setText(m_text.left(cut) + ellipsis);
            fits(layout, clipped);
        }
        const qreal top = (height() - layout.boundingRect().height()) / 2;
        layout.draw(&painter, QPointF(0, top));
    }

private:
    bool fits(QTextLayout &layout, const QList<QTextLayout::FormatRange> &formats) const
    {
        layout.setFormats(formats);
        QTextOption option(Qt::AlignLeft);
        option.setWrapMode(QTextOption::NoWrap);
        layout.setTextOption(option);
        layout.beginLayout();
        QTextLine line = layout.createLine();
        if (line.isValid())
            line.setLineWidth(width());
        layout.endLayout();
        return !line.isValid() || line.naturalTextWidth() <= width();
    }

    // The last cursor position (a grapheme boundary) after which an ellipsis still fits.
    qsizetype cutPosition(const QTextLayout &layout) const
    {
        const QTextLine line = layout.lineAt(0);
        const qreal room = width() - fontMetrics().horizontalAdvance(QChar(0x2026));
        int cursor = line.xToCursor(std::max<qreal>(room, 0), QTextLine::CursorBetweenCharacters);
        while (cursor > 0 && line.cursorToX(cursor) > room)
            cursor = layout.previousCursorPosition(cursor);
        return cursor;
    }

    QString m_text;
    QList<ResultRowView::TitleRange> m_ranges;
};

// The rounded selection background: the accent colour, thinned so the accent-coloured matched
// characters stay readable on it.
class SelectionHighlight : public QWidget
{
public:
    explicit SelectionHighlight(QWidget *parent) : QWidget(parent)
    {
        setObjectName(QStringLiteral("highlight"));
        setAttribute(Qt::WA_TransparentForMouseEvents);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QColor fill = palette().color(QPalette::Highlight);
        fill.setAlphaF(isDark(palette()) ? 0.30f : 0.16f);
        painter.setPen(Qt::NoPen);
        painter.setBrush(fill);
        painter.drawRoundedRect(QRectF(rect()), highlightRadius, highlightRadius);
    }
};

ResultRowView::ResultRowView(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("resultRow"));
    setFixedHeight(rowHeight);
    setAttribute(Qt::WA_Hover);

    // Created first so it stays at the back.
    m_highlight = new SelectionHighlight(this);
    m_highlight->hide();

    m_iconView = new IconView(this);
    m_titleLabel = new TitleLabel(this);
    m_subtitleLabel = new ElidedLabel(QStringLiteral("subtitleLabel"), this);
    m_subtitleLabel->setFont(systemFont(subtitlePixelSize));
    layoutContents();
}

void ResultRowView::configure(const ScoredFile &result)
{
    configure(result, platform::services().workspace->iconForFile(result.file.url.toLocalFile()));
}

void ResultRowView::configure(const ScoredFile &result, const QIcon &icon)
{
    const IndexedFile &file = result.file;
    m_iconView->setIcon(icon);
    m_titleLabel->setTitle(file.displayName, matchedRanges(file.displayName, result.positions));
    const QString subtitle = ShortcutURL::subtitle(file.url);
    m_subtitleLabel->setText(subtitle);
    m_subtitleLabel->setHidden(subtitle.isEmpty());
}

void ResultRowView::setSelected(bool selected)
{
    m_isSelected = selected;
    m_highlight->setHidden(!selected);
}

QString ResultRowView::title() const
{
    return m_titleLabel->text();
}

QString ResultRowView::subtitle() const
{
    return m_subtitleLabel->text();
}

QList<ResultRowView::TitleRange> ResultRowView::titleRanges() const
{
    return m_titleLabel->ranges();
}

QList<ResultRowView::TitleRange> ResultRowView::matchedRanges(const QString &title,
                                                              const QList<qsizetype> &positions)
{
    const QSet<qsizetype> matched(positions.begin(), positions.end());
    QList<TitleRange> ranges;
    if (matched.isEmpty() || title.isEmpty())
        return ranges;
    const std::vector<qsizetype> bounds = Unicode::clusterBoundaries(title);
    for (size_t index = 0; index + 1 < bounds.size(); ++index) {
        if (matched.contains(qsizetype(index)))
            ranges.append({bounds[index], bounds[index + 1] - bounds[index]});
    }
    return ranges;
}

QList<QTextLayout::FormatRange> ResultRowView::attributedTitle(const QString &title,
                                                               const QList<TitleRange> &ranges,
                                                               const QPalette &palette)
{
    QList<QTextLayout::FormatRange> formats;
    QTextLayout::FormatRange whole;
    whole.start = 0;
    whole.length = int(title.size());
    whole.format.setFont(systemFont(titlePixelSize));
    whole.format.setForeground(palette.color(QPalette::WindowText));
    formats.append(whole);
    for (const TitleRange &range : ranges) {
        QTextLayout::FormatRange bold;
        bold.start = int(range.location);
        bold.length = int(range.length);
        bold.format.setFont(systemFont(titlePixelSize, QFont::Bold));
        bold.format.setForeground(palette.color(QPalette::Highlight));
        formats.append(bold);
    }
    return formats;
}

void ResultRowView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        m_isPressed = true;
        event->accept();
        return;
    }
    QWidget::mousePressEvent(event);
}

void ResultRowView::mouseReleaseEvent(QMouseEvent *event)
{
    const bool clicked = m_isPressed && event->button() == Qt::LeftButton &&
                         rect().contains(event->position().toPoint());
    m_isPressed = false;
    if (clicked) {
        event->accept();
        handleClick();
        return;
    }
    QWidget::mouseReleaseEvent(event);
}

void ResultRowView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    layoutContents();
}

void ResultRowView::handleClick()
{
    // The handler may render the list again, which drops this row.
    if (const std::function<void()> action = onClick)
        action();
}

void ResultRowView::layoutContents()
{
    const int centre = rowHeight / 2;
    m_highlight->setGeometry(
        rect().adjusted(highlightInsetX, highlightInsetY, -highlightInsetX, -highlightInsetY));
    m_iconView->setGeometry(iconLeading, centre - iconSize / 2, iconSize, iconSize);
    const int textLeft = iconLeading + iconSize + titleGap;
    const int textWidth = std::max(0, width() - textTrailing - textLeft);
    const int titleHeight = m_titleLabel->sizeHint().height();
    m_titleLabel->setGeometry(textLeft, centre - titleHeight, textWidth, titleHeight);
    m_subtitleLabel->setGeometry(textLeft, centre + subtitleGap, textWidth,
                                 m_subtitleLabel->sizeHint().height());
}

} // namespace pindle::ui

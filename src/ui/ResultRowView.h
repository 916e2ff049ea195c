#pragma once

// One entry of the panel's result list: the file's icon, its name with the matched characters in
// bold accent colour, the subtitle under it, a rounded highlight while selected, and a click
// anywhere on the row reported through onClick.

#include "core/FileIndex.h"

#include <QIcon>
#include <QList>
#include <QTextLayout>
#include <QWidget>

#include <functional>

namespace pindle::ui {

class ElidedLabel;
class IconView;
class TitleLabel;

class ResultRowView : public QWidget
{
    Q_OBJECT
public:
    // Every row has this height; the panel sizes itself by it.
    static constexpr int rowHeight = 50;

    // A run of UTF-16 code units of the title.
    struct TitleRange
    {
        qsizetype location = 0;
        qsizetype length = 0;
        bool operator==(const TitleRange &) const = default;
    };

    explicit ResultRowView(QWidget *parent = nullptr);

    // Shows the result with the workspace's icon for its file.
    void configure(const ScoredFile &result);
    // Shows the result with an icon the caller already has for its file.
    void configure(const ScoredFile &result, const QIcon &icon);

    bool isSelected() const { return m_isSelected; }
    void setSelected(bool selected);

    std::function<void()> onClick;

    // One range per matched user-perceived character (grapheme cluster) of title, in title
    // order; positions outside the title are ignored and duplicates collapse.
    static QList<TitleRange> matchedRanges(const QString &title, const QList<qsizetype> &positions);
    // The title's formats: the whole text in the regular title font and the label colour, then
    // each matched range bold in the accent colour (palette's Highlight).
    static QList<QTextLayout::FormatRange>
    attributedTitle(const QString &title, const QList<TitleRange> &ranges, const QPalette &palette);

    QString title() const;
    QString subtitle() const;
    QList<TitleRange> titleRanges() const;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void handleClick();
    void layoutContents();

    QWidget *m_highlight = nullptr;
    IconView *m_iconView = nullptr;
    TitleLabel *m_titleLabel = nullptr;
    ElidedLabel *m_subtitleLabel = nullptr;
    bool m_isSelected = false;
    bool m_isPressed = false;
};

} // namespace pindle::ui

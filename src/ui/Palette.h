#pragma once

#include <QPalette>

namespace pindle::ui {

// Whether the desktop's theme is dark: the panels draw their lines and highlights a shade
// stronger on it.
inline bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() < 128;
}

} // namespace pindle::ui

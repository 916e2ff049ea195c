#include "ui/KeyBinding.h"

namespace pindle::ui {
namespace {

// The modifiers a binding looks at; Qt folds Caps Lock and Num Lock into none of them.
constexpr Qt::KeyboardModifiers chordModifiers = Qt::ShiftModifier | Qt::ControlModifier |
                                                 Qt::AltModifier | Qt::MetaModifier |
                                                 Qt::KeypadModifier | Qt::GroupSwitchModifier;
// The Lock bit of the key event's native (X and xkb) modifier state.
constexpr quint32 capsLockMask = 0x2;

bool matches(const KeyBinding &binding, const QKeyEvent &event)
{
    if (event.key() != binding.key)
        return false;
    const Qt::KeyboardModifiers held = event.modifiers() & chordModifiers;
    if (binding.match == KeyBinding::Match::atLeast)
        return (held & binding.modifiers) == binding.modifiers;
    return held == binding.modifiers && (event.nativeModifiers() & capsLockMask) == 0;
}

} // namespace

const KeyBinding *bindingFor(std::span<const KeyBinding> table, const QKeyEvent &event)
{
    for (const KeyBinding &binding : table) {
        if (matches(binding, event))
            return &binding;
    }
    return nullptr;
}

} // namespace pindle::ui

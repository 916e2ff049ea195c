#include "platform/FocusRestore.h"

// Placeholder until focus restore is written.
namespace pindle::FocusRestore {

void capture() {}
void restore() {}

} // namespace pindle::FocusRestore

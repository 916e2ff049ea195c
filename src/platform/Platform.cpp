#include "platform/Platform.h"

#include <cstdlib>
#include <utility>

namespace pindle::platform {
namespace {

Services &installed()
{
    static Services backend;
    return backend;
}

} // namespace

Services &services()
{
    return installed();
}

void setServices(Services backend)
{
    installed() = std::move(backend);
}

} // namespace pindle::platform

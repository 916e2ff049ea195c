#include "platform/Platform.h"

#include <utility>

namespace pindle::platform {

Services &services()
{
    static Services backend;
    return backend;
}

void setServices(Services backend)
{
    services() = std::move(backend);
}

} // namespace pindle::platform

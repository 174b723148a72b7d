#include "Compat/SPortTransport.h"

#include <atomic>

#include <unistd.h>

namespace
{
const SPortTransport kSystem = {
    ::socket, ::connect, ::bind, ::listen, ::accept4, ::recv, ::send, ::poll, ::close, ::getsockopt,
};

std::atomic<const SPortTransport*> gTransport{&kSystem};
} // namespace

const SPortTransport& PortTransport()
{
    return *gTransport.load();
}

const SPortTransport& SystemPortTransport()
{
    return kSystem;
}

void SetPortTransport(const SPortTransport* transport)
{
    gTransport.store(transport != nullptr ? transport : &kSystem);
}

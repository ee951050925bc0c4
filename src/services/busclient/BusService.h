// BusService: KVBusService over a BusLink made on first use and again after
// the connection was lost.
#pragma once

#include "BusLink.h"
#include "tessiva/kavelin/KVBusService.h"

namespace tessiva::detail::bus {
class BusService final : public KVBusService {
public:
    BusService(std::string address, bool system) noexcept
        : address_(std::move(address)), system_(system) {}

    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                        const ObRef<KVUIDelegate>& uiDelegate,
                                                        KVClientReply reply) override;
    const char* className() const noexcept override;

private:
    // The connected link, or null with the reason.
    std::shared_ptr<BusLink> link(std::string& problem);

    const std::string address_;
    const bool system_;
    std::mutex mutex_;
    std::shared_ptr<BusLink> link_;
};
} // namespace tessiva::detail::bus

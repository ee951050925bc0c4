// SPDX-License-Identifier: MIT
// BusService: KVBusService over a BusLink made on first use and again after
// the connection was lost.
#pragma once

#include "BusLink.h"
#include "tessiva/kavelin/KVBusService.h"

namespace tessiva::detail::bus {
class BusService final : public KVBusService {
public:
    explicit BusService(BusAddress where) noexcept : where_(std::move(where)) {}

    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                        const ObRef<KVUIDelegate>& uiDelegate,
                                                        KVClientReply reply) override;
    const char* className() const noexcept override;

private:
    // The connected link, or null with the reason.
    std::shared_ptr<BusLink> link(std::string& problem);

    const BusAddress where_;
    std::mutex mutex_;
    std::shared_ptr<BusLink> link_;
};
} // namespace tessiva::detail::bus

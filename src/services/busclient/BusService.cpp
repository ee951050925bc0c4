// SPDX-License-Identifier: MIT
// Set-up through the daemon: Connect makes or restores a context there.
#include "BusService.h"

#include "BusClient.h"
#include "services/dbus/ValueCodec.h"
#include "tessiva/object/ObMake.h"

#include <cstdlib>
#include <string_view>

namespace tessiva::detail::bus {
std::shared_ptr<BusLink> BusService::link(std::string& problem) {
    std::lock_guard lock(mutex_);
    if (!link_ || !link_->connected())
        link_ = BusLink::open(where_, problem);
    return link_;
}

void BusService::clientWithExternalizedContext_uiDelegate_reply(
    const ObRef<ObData>& context, const ObRef<KVUIDelegate>& uiDelegate, KVClientReply reply) {
    std::string problem;
    std::shared_ptr<BusLink> connection = link(problem);
    if (!connection) {
        reply(nullptr, unreachableError(problem));
        return;
    }
    ObRef<KVClient> client;
    ObRef<ObError> error;
    connection->callAndWait(
        "Connect",
        [&](sd_bus_message* m) -> ObRef<ObError> {
            if (ObRef<ObError> failure = appendValue(m, context))
                return failure;
            sd_bus_message_append(m, "b", int(bool(uiDelegate)));
            return nullptr;
        },
        [&](sd_bus_message* message, ObRef<ObError> failure) {
            const char* id = nullptr;
            ObRef<ObObject> handle, creator, carried;
            if (!message) {
                error = failure;
            } else if (sd_bus_message_read(message, "o", &id) < 0 ||
                       !readValue(message, handle).empty() ||
                       !readValue(message, creator).empty() ||
                       !readValue(message, carried).empty()) {
                error = malformedReplyError();
            } else if (!(error = ob_cast<ObError>(carried))) {
                // Registered on the loop's thread, before any event can come;
                // events count only from the daemon that made the client.
                if (uiDelegate)
                    connection->addDelegate(id, sd_bus_message_get_sender(message), uiDelegate);
                client = ObMake<BusClient>(connection, id, ob_cast<ObData>(handle),
                                           ob_cast<ObString>(creator), uiDelegate);
            }
        });
    reply(client, error);
}

const char* BusService::className() const noexcept {
    return "KVBusService";
}
} // namespace tessiva::detail::bus

ObRef<KVBusService> KVBusService::make(const ObRef<ObString>& address) {
    using tessiva::detail::bus::BusAddress;
    BusAddress where;
    // An empty address, like none, leaves the choice to TESSIVA_BUS.
    if (address && address->length() > 0) {
        where = {BusAddress::Kind::address, std::string(address->text())};
    } else if (const char* bus = std::getenv("TESSIVA_BUS");
               bus != nullptr && std::string_view(bus) == "system") {
        where.kind = BusAddress::Kind::system;
    }
    return ObMake<tessiva::detail::bus::BusService>(std::move(where));
}

KVBusService::~KVBusService() = default;

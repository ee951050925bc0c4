// SPDX-License-Identifier: MIT
// PAMService: the PAM service's implementation: the shared service machinery
// judged by PAM.
#pragma once

#include "services/core/ServiceCore.h"
#include "tessiva/kavelin/KVPAMService.h"

namespace tessiva::detail {
class PAMService final : public KVPAMService {
public:
    explicit PAMService(KVPAMConfiguration configuration);

    void clientWithExternalizedContext_uiDelegate_reply(const ObRef<ObData>& context,
                                                        const ObRef<KVUIDelegate>& uiDelegate,
                                                        KVClientReply reply) override;
    KVPAMConfiguration configuration() override { return configuration_; }

    const char* className() const noexcept override;

private:
    const KVPAMConfiguration configuration_;
    const ObRef<ServiceCore> core_;
};
} // namespace tessiva::detail

#include "firmware/dash/DashEndpoint.h"

#include <utility>

#include "firmware/dash/DashConnection.h"

namespace mpm {

DashEndpoint::DashEndpoint(std::function<const Settings&()> settings)
    : m_certificate(MakeCertificate()), m_context(MakeServerContext(m_certificate)) {
    OfferIdentify(m_wsman, [settings] {
        const Settings& now = settings();
        return Identity{now.ProductVendor, now.MPMVersion, now.DASHVersion};
    });
    m_wsman.GuardBy([this, settings](const HttpRequest& request) {
        return m_authentication.Refuse(request, settings());
    });
}

std::unique_ptr<StreamPeer> DashEndpoint::Accept(EventLoop& loop, std::chrono::milliseconds pause,
                                                 PacedSender::Send send,
                                                 std::function<void(const std::string&)> note,
                                                 std::function<void()> end) {
    const auto handle = [this, note](const HttpRequest& request) {
        HttpResponse response = m_wsman.Handle(request);
        note(request.method + " " + request.target + " -> " + std::to_string(response.status));
        return response;
    };
    return std::make_unique<DashConnection>(m_context.get(), loop, pause, std::move(send),
                                            DashConnection::Calls{handle, note, std::move(end)});
}

}  // namespace mpm

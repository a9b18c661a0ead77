#include "apps/camclock/sources/ConnectionTrouble.h"

#include "apps/camclock/sources/Gst.h"

#include <fmt/format.h>

#include <string>

namespace camclock::app {
namespace {

constexpr guint kTimeOut_s = 2;
constexpr const char* kLookAtUrl = "check the host and the port of the URL";

Failure Named(const std::string& why, const std::string& advice) {
    return {ExitCode::kNotReachable, "no connection: " + why, advice};
}

Failure OfTls(const GError& error) {
    return Named(
        fmt::format("the camera's TLS certificate is not accepted, or it speaks no TLS ({})", error.message),
        "give its certificate, or that of its issuer, with --tls-ca FILE; --tls-insecure accepts any");
}

Failure OfError(const GError& error, const StreamUrl& url) {
    if (error.domain == G_RESOLVER_ERROR)
        return Named(fmt::format("the name {} is unknown", url.host),
                     "check its spelling, or write its address");
    if (error.domain == G_TLS_ERROR)
        return OfTls(error);
    if (error.domain == G_IO_ERROR) {
        switch (error.code) {
        case G_IO_ERROR_CONNECTION_REFUSED:
            return Named(fmt::format("{} refuses it at port {}", url.host, url.PortOrDefault()),
                         "check the port of the URL, and whether RTSP is switched on in the camera");
        case G_IO_ERROR_HOST_UNREACHABLE:
        case G_IO_ERROR_NETWORK_UNREACHABLE:
            return Named(fmt::format("there is no way to {} ({})", url.host, error.message),
                         "check the address, this host's routes and the cable");
        case G_IO_ERROR_TIMED_OUT:
            return Named(fmt::format("{} does not answer", url.host),
                         "check the address; the camera may be off, or a firewall in between");
        case G_IO_ERROR_HOST_NOT_FOUND:
            return Named(fmt::format("the name {} is unknown", url.host),
                         "check its spelling, or write its address");
        default: break;
        }
    }
    return Named(error.message, kLookAtUrl);
}

}  // namespace

Failure ExplainConnection(const StreamUrl& url, const ConnectionSettings& settings, GCancellable* cancel) {
    const GstOwner<GSocketClient> client(g_socket_client_new());
    g_socket_client_set_timeout(client.get(), kTimeOut_s);
    GError* raw = nullptr;
    const GstOwner<GSocketConnection> connection(g_socket_client_connect_to_host(
        client.get(), url.host.c_str(), static_cast<guint16>(url.PortOrDefault()), cancel, &raw));
    if (!connection) {
        const ErrorOwner error(raw);
        return OfError(*error, url);
    }
    if (url.scheme == "rtsps") {
        const GstOwner<GSocketConnectable> name(
            g_network_address_new(url.host.c_str(), static_cast<guint16>(url.PortOrDefault())));
        const GstOwner<GIOStream> tls(
            g_tls_client_connection_new(G_IO_STREAM(connection.get()), name.get(), &raw));
        if (tls && !settings.tlsCaFile.empty()) {
            const GstOwner<GTlsDatabase> database(
                g_tls_file_database_new(settings.tlsCaFile.c_str(), nullptr));
            if (database)
                g_tls_connection_set_database(G_TLS_CONNECTION(tls.get()), database.get());
        }
        if (tls && settings.tlsInsecure)
            g_signal_connect(tls.get(), "accept-certificate",
                             G_CALLBACK(+[](GTlsConnection*, GTlsCertificate*, GTlsCertificateFlags,
                                            gpointer) -> gboolean { return TRUE; }),
                             nullptr);
        if (!tls || g_tls_connection_handshake(G_TLS_CONNECTION(tls.get()), cancel, &raw) == FALSE) {
            const ErrorOwner error(raw);
            return OfTls(*error);
        }
    }
    return Named("the host does not answer as an RTSP server", kLookAtUrl);
}

}  // namespace camclock::app

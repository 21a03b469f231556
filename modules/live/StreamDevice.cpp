#include "modules/live/StreamDevice.h"

#include <cerrno>
#include <cstring>

#include "modules/live/Packets.h"
#include "sigweave/services/Bilingual.h"

namespace live {

using tc::Bilingual;

std::string StreamPlace::Name() const {
    if (kind == STANDARD_INPUT) return Bilingual("standard input", "die Standardeingabe").Text();
    return kind == FILE || kind == LOCAL ? path : host + ":" + std::to_string(port);
}

std::unique_ptr<tc::ByteInput> StreamDevice::OpenInput() const {
    switch (place.kind) {
        case StreamPlace::STANDARD_INPUT:
            break;
        case StreamPlace::FILE:
            return tc::ByteInput::File(place.path.c_str(), place.grows);
        case StreamPlace::TCP:
            return tc::ByteInput::Connect(place.host.c_str(), place.port);
        case StreamPlace::LISTEN:
            return tc::ByteInput::Listen(place.host.c_str(), place.port);
        case StreamPlace::UDP:
            return tc::ByteInput::Datagrams(place.host.c_str(), place.port);
        case StreamPlace::LOCAL:
            return tc::ByteInput::ConnectLocal(place.path.c_str());
    }
    return tc::ByteInput::StandardInput();
}

bool StreamDevice::Open(std::string& error) {
    errno = 0;
    input = OpenInput();
    if (input != nullptr) return true;
    const std::string reason = place.kind == StreamPlace::TCP && errno == EADDRNOTAVAIL
                                   ? Bilingual("nobody knows this name", "diesen Namen kennt niemand").Text()
                                   : std::strerror(errno);
    constexpr Bilingual TCP(
        "nobody answers at %1 (%2); start the sender first, or check host and port",
        "an %1 antwortet niemand (%2); starten Sie zuerst den Sender, oder prüfen Sie Adresse "
        "und Port");
    constexpr Bilingual OWN("%1 is no address of this machine that is free (%2); choose another host or port",
                            "%1 ist keine freie Adresse dieses Rechners (%2); wählen Sie eine andere Adresse "
                            "oder einen anderen Port");
    constexpr Bilingual OTHER("%1 cannot be opened (%2); check the path",
                              "%1 kann nicht geöffnet werden (%2); prüfen Sie den Pfad");
    const bool isOwn = place.kind == StreamPlace::LISTEN || place.kind == StreamPlace::UDP;
    error = (isOwn ? OWN : place.kind == StreamPlace::TCP ? TCP : OTHER).With({Name(), reason});
    return false;
}

Device::Reading StreamDevice::Read(std::span<std::byte> into) {
    const tc::ByteInput::Reading reading = input->Read(into);
    switch (reading.outcome) {
        case tc::ByteInput::DATA:
            return {DATA, reading.bytes};
        case tc::ByteInput::NOTHING:
            return {NOTHING};
        case tc::ByteInput::FAILED:
            why = reading.error == ESTALE
                      ? Bilingual("%1 was cut while it was read; a file that grows must only grow",
                                  "%1 wurde beim Lesen gekürzt; eine wachsende Datei darf nur wachsen")
                            .With({Name()})
                      : Bilingual("%1 broke off: %2", "%1 brach ab: %2")
                            .With({Name(), std::strerror(reading.error)});
            return {FAILED};
        case tc::ByteInput::END:
            break;
    }
    if (place.mayClose) return {END};
    why =
        Bilingual("the peer at %1 closed the connection", "die Gegenseite %1 hat die Verbindung geschlossen")
            .With({Name()});
    return {FAILED};
}

}  // namespace live

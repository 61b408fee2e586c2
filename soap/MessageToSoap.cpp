// Reply packet to SOAP response or fault. The operation's name and namespace
// come back from the packet's `cookie`; the reply's data is written as text
// inside an element named for the operation with "Response" behind it, and the
// rest of the packet becomes the SOAP header's `packet_header`.
#include <kvx/KVXSessionID.h>
#include <kvx/KVXSoapConverter.h>

#include "soap/BridgeElements.h"
#include "soap/KVXSoapConverterState.h"
#include "soap/TextReplace.h"
#include "vocabulary/NamespaceBase.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

namespace KVX {

namespace {

using Internal::CookieId;
using Internal::NameId;
using Internal::RequestId;

// Every piece of the packet is written in the text form of this version.
constexpr int TextVersion = 40500;

char const UnsupportedVersion[] = "Unsupported soap version";

// The namespace base: host, "/webservices/kvx/", the version segment and "/".
std::string namespaceBase(int number) {
    std::string base = Internal::NamespaceHost;
    base += "/webservices/kvx/";
    if (number != 0) {
        char segment[48];
        std::snprintf(segment, sizeof segment, "%d.%d.%d/", number / 10000, number / 100 % 100,
                      number % 100);
        base += segment;
    } else {
        base += "4.5.0/";
    }
    return base;
}

} // namespace

int KVXSoapConverter::kvxmsgToSoap(KVXMessage &message, SoapVersion version,
                                   KVXSoapEnvelope *&envelope) {
    resetState();
    envelope = nullptr;
    std::string body;
    bool error = false;
    KVXMessageIterator *cursor = message.newIterator();

    // A failure becomes a client fault of the requested version, or a SOAP 1.1
    // "Unsupported soap version" fault when there is no such version.
    auto report = [&](char const *words) {
        KVXSoapFault *fault =
            KVXSoapFault::createSoapFault(version, KVXSoapFault::CodeClient, words);
        if (fault == nullptr)
            fault = KVXSoapFault::createSoapFault(SoapVersion11, KVXSoapFault::CodeClient,
                                                  UnsupportedVersion);
        delete state->fault;
        state->fault = fault;
        delete cursor;
        return -1;
    };
    if (cursor == nullptr)
        return report("Cannot parse KVAgent message");

    // The version of the namespace base: from the session identifier when the
    // packet has one, else from the header.
    int number = 0;
    KVXSessionID session;
    if (message.getSessionID(session) != 0)
        message.getVersion(number);
    else
        number = session.getVersion();
    std::string const base = namespaceBase(number);

    // Appends the text of the cursor's element and of its following siblings
    // (by `sibling` name, or all when empty) to the body. False on failure.
    auto appendTexts = [&](char const *sibling) {
        do {
            char *text = message.toText(cursor, base, TextVersion);
            if (text == nullptr)
                return false;
            body += text;
            std::free(text);
        } while ((sibling != nullptr ? cursor->nextSibling(sibling) : cursor->nextSibling()) == 0);
        return true;
    };

    // An `error` directly under `data` is a system error; one under the
    // operator's element an operator error. The first found wins.
    cursor->seek("data");
    if (cursor->seek("error") == 0) {
        if (!appendTexts("error"))
            return report("Cannot get system error from KVAgent message");
        error = true;
    } else {
        cursor->firstChild();
    }
    if (!error && cursor->seek("error") == 0) {
        if (!appendTexts("error"))
            return report("Cannot get operator error from KVAgent message");
        error = true;
    }

    cursor->seekRoot();
    if (cursor->seek(CookieId) < 0)
        return report("Cannot get cookie!");
    std::string operation;
    std::string operationNamespace;
    cursor->getValue(operation, RequestId);
    cursor->getValue(operationNamespace, NameId);
    if (operation.empty())
        return report("Cannot get original operation name from KVAgent message");
    if (operationNamespace.empty())
        return report("Cannot get original operation namespace from KVAgent message");
    cursor->seekRoot();

    if (!error) {
        cursor->seek("data");
        cursor->firstChild();
        std::string const operatorName = cursor->curName();
        body += "<";
        body += operation;
        body += "Response";
        if (!operatorName.empty()) {
            body += " xmlns=\"";
            body += operationNamespace;
            body += "\">\n";
        }
        // The system operator's reply that holds a configuration is written
        // with its own element around it; every other reply from its children.
        bool down = !(cursor->curName() == "system" && cursor->seekPresence("configuration") == 0);
        if (down)
            cursor->firstChild();
        if (!appendTexts(nullptr))
            return report("Cannot get response from KVAgent message");
        body += "</";
        body += operation;
        body += "Response>\n";
    }

    // The data goes; the rest of the packet, cookie included, is the header.
    // Without `data` the seek leaves the cursor on the root, and deleting there
    // would take the whole packet and leave nothing to write: only `data` goes.
    cursor->seekRoot();
    if (cursor->seek("data") == 0)
        cursor->deleteFromChild();
    cursor->seekRoot();
    char *text = message.toText(cursor, base, TextVersion);
    if (text == nullptr)
        return report("Cannot parse KVAgent message");
    std::string header = text;
    std::free(text);
    std::string const packetHeader = "<packet_header xmlns=\"" + base + "protocol\"";
    Internal::replaceAll(header, "<packet", packetHeader);
    Internal::replaceAll(header, "/packet>", "/packet_header>");
    delete cursor;

    if (error) {
        KVXSoapFault *fault = KVXSoapFault::createSoapFault(version, KVXSoapFault::CodeServer,
                                                            "KVAgent responded with error");
        if (fault == nullptr) {
            delete state->fault;
            state->fault = KVXSoapFault::createSoapFault(SoapVersion11, KVXSoapFault::CodeClient,
                                                         UnsupportedVersion);
            return -1;
        }
        fault->header = std::move(header);
        fault->detail = std::move(body);
        envelope = fault;
        return 0;
    }
    std::string const uri = getSoapURIByVersion(version);
    if (uri.empty()) {
        // No fallback to SOAP 1.1 here: with an unknown version the fault stays null.
        delete state->fault;
        state->fault =
            KVXSoapFault::createSoapFault(version, KVXSoapFault::CodeClient, UnsupportedVersion);
        return -1;
    }
    KVXSoapEnvelope *response = new KVXSoapEnvelope(uri);
    response->header = std::move(header);
    response->body = std::move(body);
    envelope = response;
    return 0;
}

} // namespace KVX

// SOAP request to packet. The envelope is cut apart by text search; the packet
// header found in the SOAP header and the operation element of the body are
// the only pieces parsed as XML, by the packet's own text parser. The
// operation's tag and namespace are parked in the packet's `cookie` so that
// the reply can be named after them.
#include <kvx/KVXSoapConverter.h>

#include "message/VersionText.h"
#include "soap/BridgeElements.h"
#include "soap/KVXSoapConverterState.h"
#include "soap/TextReplace.h"
#include "vocabulary/VocabularyConstants.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace KVX {

namespace {

using Internal::CookieId;
using Internal::NameId;
using Internal::RequestId;
using Internal::TargetId;

// The namespace whose URI ends in "/webservices/kvx/4.0.0/protocol".
constexpr int ProtocolNamespaceId = 297;

char const NoOperation[] = "No KVAgent operation was specified";
char const NoOperator[] = "No KVAgent target operator was specified";
char const BadBody[] = "Cannot parse soap message body";
char const BodyRefused[] = "Soap message body cannot be converted to KVAgent message";
char const WrongHeader[] = "Wrong packet header";
char const HeaderRefused[] = "Soap header cannot be converted to KVAgent message";
char const VersionMismatch[] = "Version mismatch";

std::string plain(istring_view text) {
    return std::string(text.data(), text.size());
}

std::string lowerCase(std::string text) {
    for (char &c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Deletes a cursor on every way out.
struct CursorHolder {
    explicit CursorHolder(KVXMessageIterator *c) : cursor(c) {}
    ~CursorHolder() { delete cursor; }
    CursorHolder(CursorHolder const &) = delete;
    CursorHolder &operator=(CursorHolder const &) = delete;
    KVXMessageIterator *operator->() const { return cursor; }
    KVXMessageIterator *cursor;
};

} // namespace

int KVXSoapConverter::soapToKvxmsg(char const *text, KVXMessage &message) {
    resetState();
    if (text != nullptr)
        state->documentText = text;
    std::unique_ptr<KVXSoapEnvelope> envelope(KVXSoapEnvelope::fromText(text));
    if (!envelope) {
        setFault(KVXSoapFault::CodeVersionMismatch, VersionMismatch);
        return -1;
    }
    auto version = soapVersions.find(envelope->soapURI);
    if (version == soapVersions.end()) {
        setFault(KVXSoapFault::CodeVersionMismatch, VersionMismatch);
        return -1;
    }
    state->version = version->second;
    if (convertHeader(envelope->header.c_str(), message) != 0)
        return -1;
    if (convertBody(envelope->body.c_str(), message) != 0)
        return -1;
    return 0;
}

int KVXSoapConverter::convertHeader(char const *header, KVXMessage &message) {
    if (header == nullptr) {
        message.create("packet");
        return 0;
    }
    istring_view const text(header, std::strlen(header));
    istring_view::size_type start = text.find("<packet_header");
    if (start == istring_view::npos) {
        message.create("packet");
        return 0;
    }
    istring_view::size_type end = text.find("/packet_header>", start);
    if (end != istring_view::npos) {
        end += sizeof("/packet_header>") - 1;
    } else {
        end = text.find("/>", start);
        if (end == istring_view::npos) {
            setFault(KVXSoapFault::CodeClient, WrongHeader);
            return -1;
        }
        end += 2;
    }
    // Only the element is copied, as the text that is rewritten.
    istring work(header + start, end - start);
    Internal::replaceAll(work, "packet_header", "packet");
    removeNamespaces(work);
    KVX_ASSERT(!work.empty()); // the element holds at least "<packet"
    if (work.size() >= 2 && work.compare(work.size() - 2, 2, "/>") == 0)
        work.replace(work.size() - 2, 2, "></packet>");
    istring::size_type close = work.rfind("</packet>");
    if (close == istring::npos) {
        setFault(KVXSoapFault::CodeClient, WrongHeader);
        return -1;
    }
    // The body step fills this cookie with the operation's tag and namespace.
    work.insert(close, "<cookie></cookie>");
    if (message.fromText(work.c_str(), nullptr) < 0) {
        setFault(KVXSoapFault::CodeClient, HeaderRefused);
        return -1;
    }
    return 0;
}

int KVXSoapConverter::convertBody(char const *body, KVXMessage &message) {
    // Searched in place: only the operation element is copied, once, for the
    // parser.
    istring_view const text =
        body != nullptr ? istring_view(body, std::strlen(body)) : istring_view();

    // The operation element: the first "<" behind the body's own tag. A comment
    // or declaration there is passed over (behind its end) and the search goes on.
    istring_view::size_type open = text.find('<', 1);
    for (;;) {
        if (open == istring_view::npos) {
            setFault(KVXSoapFault::CodeClient, NoOperation);
            return -1;
        }
        if (open + 1 >= text.size() || text[open + 1] != '!')
            break;
        istring_view::size_type skipEnd = text.compare(open, 4, "<!--") == 0
                                              ? text.find("-->", open + 4)
                                              : text.find('>', open + 2);
        if (skipEnd == istring_view::npos) {
            open = istring_view::npos;
            continue;
        }
        open = text.find('<', skipEnd + 1);
    }
    if (open + 1 >= text.size()) {
        setFault(KVXSoapFault::CodeClient, NoOperation);
        return -1;
    }
    istring_view::size_type bodyClose = text.rfind("</");
    if (bodyClose == istring_view::npos) {
        setFault(KVXSoapFault::CodeClient, BadBody);
        return -1;
    }
    istring_view const content =
        bodyClose > open ? text.substr(open, bodyClose - open) : istring_view();

    istring_view::size_type tagEnd = content.find('>');
    if (tagEnd == istring_view::npos) {
        setFault(KVXSoapFault::CodeClient, NoOperation);
        return -1;
    }
    istring_view::size_type attributes = content.find(' ');
    istring_view::size_type nameEnd =
        (attributes != istring_view::npos && attributes < tagEnd) ? attributes : tagEnd;
    std::string tag = nameEnd > 1 ? plain(content.substr(1, nameEnd - 1)) : std::string();
    if (tag.empty()) {
        setFault(KVXSoapFault::CodeClient, NoOperation);
        return -1;
    }
    std::string prefix;
    std::string::size_type colon = tag.find(':');
    if (colon != std::string::npos) {
        prefix = tag.substr(0, colon);
        tag = tag.substr(colon + 1);
    }
    tag = lowerCase(tag);

    // The operation's namespace declaration: in the element itself for a
    // default namespace, anywhere in the document for a prefix.
    istring_view declaration;
    if (prefix.empty()) {
        istring_view::size_type declarationEnd =
            attributes != istring_view::npos ? content.find('>', attributes) : istring_view::npos;
        if (declarationEnd == istring_view::npos) {
            setFault(KVXSoapFault::CodeClient, NoOperation);
            return -1;
        }
        istring_view::size_type behind = istring_view::npos;
        istring_view::size_type xmlns = content.find("xmlns", attributes);
        while (xmlns != istring_view::npos) {
            behind = xmlns + 5;
            if (behind < content.size() && content[behind] == ':') {
                xmlns = content.find("xmlns", behind);
                behind = istring_view::npos;
                continue;
            }
            break;
        }
        if (xmlns == istring_view::npos || behind >= declarationEnd || behind >= content.size()) {
            setFault(KVXSoapFault::CodeClient, NoOperator);
            return -1;
        }
        declaration = content.substr(behind, declarationEnd - behind + 1);
    } else {
        istring needle = "xmlns:";
        needle.append(prefix.data(), prefix.size());
        istring_view const document(state->documentText);
        istring_view::size_type match = document.find(needle);
        if (match == istring_view::npos) {
            setFault(KVXSoapFault::CodeClient, NoOperator);
            return -1;
        }
        istring_view::size_type first = document.find('"', match);
        istring_view::size_type second =
            first != istring_view::npos ? document.find('"', first + 1) : istring_view::npos;
        if (second == istring_view::npos) {
            setFault(KVXSoapFault::CodeClient, NoOperator);
            return -1;
        }
        declaration = document.substr(match, second - match + 1);
    }
    istring_view::size_type equals = declaration.find('=');
    istring_view::size_type first =
        equals != istring_view::npos ? declaration.find('"', equals) : equals;
    istring_view::size_type second =
        first != istring_view::npos ? declaration.find('"', first + 1) : first;
    if (second == istring_view::npos) {
        setFault(KVXSoapFault::CodeClient, NoOperator);
        return -1;
    }
    std::string uri = plain(declaration.substr(first + 1, second - first - 1));
    std::string::size_type lastSlash = uri.rfind('/');
    if (lastSlash == std::string::npos) {
        setFault(KVXSoapFault::CodeClient, NoOperator);
        return -1;
    }

    // The operator: the header's target, else the URI's last path segment.
    std::string op;
    {
        CursorHolder reader(message.newIterator());
        if (reader.cursor == nullptr || reader->getValue(op, TargetId) != 0)
            op = uri.substr(lastSlash + 1);
    }
    op = lowerCase(op);
    std::string const &operationNamespace = uri;
    std::string versionText;
    if (lastSlash > 0) {
        std::string::size_type before = uri.rfind('/', lastSlash - 1);
        if (before != std::string::npos)
            versionText = uri.substr(before + 1, lastSlash - before - 1);
    }

    // The operation element declares xsi for the text parser: the declaration
    // goes in front of the first '>', as the element is copied.
    static std::string const xsiDeclaration = " xmlns:xsi=\"" + Internal::XsiNamespace.str() + "\"";
    std::string operation;
    istring_view::size_type const contentTagEnd = content.find('>');
    if (contentTagEnd != istring_view::npos) {
        operation.reserve(content.size() + xsiDeclaration.size());
        operation.append(content.data(), contentTagEnd);
        operation += xsiDeclaration;
        operation.append(content.data() + contentTagEnd, content.size() - contentTagEnd);
    } else {
        operation.assign(content.data(), content.size());
    }

    CursorHolder writer(message.newIterator());
    if (writer.cursor == nullptr) {
        setFault(KVXSoapFault::CodeClient, BodyRefused);
        return -1;
    }
    if (op != "system" && writer->seekPresence(TargetId) != 0) {
        writer->newChild("target");
        writer->putValue(op, 0);
        writer->seekUp();
    }
    if (writer->seek(CookieId) < 0) {
        writer->saveNamespace(ProtocolNamespaceId);
        writer->newChild(CookieId);
    }
    writer->putValue(tag, RequestId);
    writer->putValue(operationNamespace, NameId);
    writer->seekUp();
    writer->newChild("data");
    writer->newChild(op);
    if (writer->fromTextToChild(operation.c_str()) < 0) {
        setFault(KVXSoapFault::CodeClient, BodyRefused);
        return -1;
    }
    if (!versionText.empty())
        message.setVersion(parseVersionText(versionText.data(), versionText.size()));
    return 0;
}

} // namespace KVX

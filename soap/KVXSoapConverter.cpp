// KVXSoapConverter: construction, state and the helpers shared by both
// directions of conversion. The converter owns its state and the last fault.
// One converter serves one thread.
#include <kvx/KVXSoapConverter.h>

#include "soap/KVXSoapConverterState.h"

namespace KVX {

KVXSoapConverter::KVXSoapConverter() : state(new KVXSoapConverterState()) {}

KVXSoapConverter::~KVXSoapConverter() {
    delete state;
}

SoapVersion KVXSoapConverter::getSoapVersion() const {
    return state->version;
}

KVXSoapFault *KVXSoapConverter::getFault() const {
    return state->fault;
}

void KVXSoapConverter::resetState() {
    state->version = SoapVersion11;
    delete state->fault;
    state->fault = nullptr;
    state->documentText.clear();
}

void KVXSoapConverter::setFault(KVXSoapFault::Code code, std::string const &words) {
    // With SoapVersionNone there is no fault class, and the fault ends up null.
    KVXSoapFault *fault = KVXSoapFault::createSoapFault(state->version, code, words);
    delete state->fault;
    state->fault = fault;
}

std::string KVXSoapConverter::getSoapURIByVersion(SoapVersion version) {
    for (auto const &row : soapVersions) {
        if (row.second == version)
            return row.first;
    }
    return std::string();
}

void KVXSoapConverter::removeNamespaces(istring &text) {
    static istring const declaration(" xmlns");
    istring::size_type position = 0;
    for (;;) {
        istring::size_type match = text.find(declaration, position);
        if (match == istring::npos)
            return;
        istring::size_type cutEnd;
        istring::size_type open = text.find('"', match);
        if (open != istring::npos) {
            istring::size_type close = text.find('"', open + 1);
            cutEnd = close != istring::npos ? close + 1 : text.size();
        } else {
            // No value at all: only the word goes.
            cutEnd = match + declaration.size();
        }
        text.erase(match, cutEnd - match);
        position = match;
    }
}

} // namespace KVX

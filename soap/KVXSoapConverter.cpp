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
    // One pass that keeps what lies between the cuts: the search goes on at
    // the end of each cut, and the text behind a cut is the text behind it
    // in the original, so this is the same as erasing each cut in turn.
    static constexpr istring_view declaration(" xmlns");
    istring_view const source(text);
    istring_view::size_type match = source.find(declaration);
    if (match == istring_view::npos)
        return;
    istring kept;
    kept.reserve(text.size());
    istring_view::size_type read = 0;
    while (match != istring_view::npos) {
        istring_view::size_type cutEnd;
        istring_view::size_type const open = source.find('"', match);
        if (open != istring_view::npos) {
            istring_view::size_type const close = source.find('"', open + 1);
            cutEnd = close != istring_view::npos ? close + 1 : source.size();
        } else {
            // No value at all: only the word goes.
            cutEnd = match + declaration.size();
        }
        kept.append(source.data() + read, match - read);
        read = cutEnd;
        match = source.find(declaration, read);
    }
    kept.append(source.data() + read, source.size() - read);
    text.swap(kept);
}

} // namespace KVX

// Namespaces and complex types through a cursor, and the expansion of deferred
// XML fragments (id 0, KindXML) into real nodes. Writes the ns and kind fields
// of the message's frame through KVXBinaryInternals; names go through its id
// map. One thread at a time per document and its cursors.
#include <kvx/KVXBinaryIterator.h>

#include "binary/CursorWalk.h"
#include "binary/KVXBinaryInternals.h"

#include <boost/bind/bind.hpp>

namespace KVX {

int KVXBinaryIterator::setNamespace(int id) {
    if (validateInternals() != 0)
        return -1;
    // The id is written even when it has no name; 0 clears the namespace and
    // reports -1 for that reason.
    return doc().setNamespace(path, id);
}

int KVXBinaryIterator::setNamespace(std::string const &uri) {
    if (uri.empty())
        return setNamespace(0);
    if (validateInternals() != 0)
        return -1;
    int id = ids().intern(Internal::CharArray(uri), Internal::TableNamespace);
    if (id == 0)
        return -1;
    return setNamespace(id);
}

// The stack belongs to the cursor: while it is not empty, every node that
// append adds takes its top as namespace.
void KVXBinaryIterator::saveNamespace(int id) {
    if (id != 0)
        path.namespaces.push_back(id);
    else if (!path.namespaces.empty())
        path.namespaces.pop_back();
}

void KVXBinaryIterator::saveNamespace(std::string const &uri) {
    if (uri.empty()) {
        saveNamespace(0);
        return;
    }
    if (validateInternals() != 0)
        return;
    int id = ids().intern(Internal::CharArray(uri), Internal::TableNamespace);
    // intern gives 0 only for a corrupt name table or a failed entry; the
    // caller saved a namespace on a document that cannot take one.
    KVX_ASSERT(id != 0);
    if (id != 0)
        saveNamespace(id);
}

// The one reader that validates as a writer does, so it may separate shared
// data.
int KVXBinaryIterator::curNamespaceID() const {
    if (validateInternals() != 0)
        return -1;
    return doc().currentNamespace(path);
}

int KVXBinaryIterator::setComplexType(int namespaceId, int typeId) {
    if (validateInternals() != 0)
        return -1;
    std::string fullName;
    if (namespaceId != 0) {
        Internal::CharArray name = ids().lookupName(namespaceId);
        if (name.empty())
            return -1;
        fullName = name.str() + ":";
    }
    Internal::CharArray type = ids().lookupTypeName(typeId);
    if (type.empty())
        return -1;
    fullName += type.str();
    return setComplexType(fullName);
}

int KVXBinaryIterator::setComplexType(std::string const &namespaceName,
                                      std::string const &typeName) {
    if (typeName.empty())
        return 0;
    if (namespaceName.empty())
        return setComplexType(typeName);
    if (validateInternals() != 0)
        return -1;
    if (ids().intern(Internal::CharArray(namespaceName), Internal::TableNamespace) == 0)
        return -1;
    return setComplexType(namespaceName + ":" + typeName);
}

int KVXBinaryIterator::setComplexType(std::string const &fullName) {
    if (validateInternals() != 0)
        return -1;
    int id = ids().intern(Internal::CharArray(fullName), Internal::TableType);
    if (id == 0)
        return -1;
    return doc().setKind(path, id);
}

std::string const KVXBinaryIterator::curType() const {
    KVXBinary *binary = getBinaryMessage();
    if (binary == nullptr || binary->internals == nullptr)
        return std::string();
    Internal::FrameView frame(doc());
    binary::Node node(nullptr, 0, 0, 0);
    if (!Internal::currentNode(frame, path.entries, node))
        return std::string();
    unsigned kind = node.kind();
    // A dynamic type's full name holds its namespace already.
    unsigned namespaceId = kind < 32767 ? node.ns() : 0;
    std::string result;
    if (namespaceId != 0) {
        Internal::CharArray name = ids().lookupName(static_cast<int>(namespaceId));
        if (name.empty())
            return std::string();
        result = name.str() + ":";
    }
    Internal::CharArray type = ids().lookupTypeName(static_cast<int>(kind));
    if (type.empty())
        return std::string();
    return result + type.str();
}

int KVXBinaryIterator::getFullTypeName(int namespaceId, int typeId, std::string &out) const {
    if (namespaceId != 0) {
        Internal::CharArray name = ids().lookupName(namespaceId);
        if (name.empty())
            return -1;
        out = name.str() + ":";
    }
    Internal::CharArray type = ids().lookupTypeName(typeId);
    if (type.empty()) {
        out.clear();
        return -1;
    }
    out += type.str();
    return 0;
}

// Each pass removes one fragment child and grafts its parsed tree as the last
// children, so fragments come out behind the other children.
int KVXBinaryIterator::parseUnknown() const {
    Internal::NodePredicate const unnamed =
        boost::bind(&binary::Node::id, boost::placeholders::_1) == 0;
    for (;;) {
        if (validateStamp() != 0)
            return -1;
        Internal::FrameView frame(doc());
        binary::Node current(nullptr, 0, 0, 0);
        if (!Internal::currentNode(frame, path.entries, current) || !current.isContainer())
            return -1;
        std::size_t last = path.entries.size() - 1;
        Internal::FilteredWalk walk(
            frame, frame.childSpan(current.offset, frame.enclosingEnd(path.entries, last)),
            unnamed);
        walk.settle();
        if (walk.atEnd())
            return 0;
        binary::Node fragment = walk.node();
        // A child without an id that is not a fragment would be found again on
        // every pass and never removed: the expansion stops there instead.
        if (fragment.kind() != Internal::KindXML || !fragment.valueFits() ||
            fragment.size() > 0x7FFFFFFFu)
            return 0;

        // The scratch message's parser must fail on an element it cannot name,
        // or the fragment would come back as a fragment.
        KVXBinary *scratch = new KVXBinary();
        scratch->policy = 2;
        if (scratch->deserialize(fragment.value(), static_cast<int>(fragment.size()), nullptr) !=
            0) {
            scratch->destroy();
            return (policy & 2) ? -1 : 0;
        }
        path.entries.push_back(PathEntry{0, fragment.offset});
        doc().remove(path);
        KVXBinaryInternals const *parsed = scratch->internals;
        int grafted = parsed == nullptr || parsed->buffer == nullptr
                          ? -1
                          : message->deserialize(parsed->buffer, parsed->used,
                                                 const_cast<KVXBinaryIterator *>(this));
        scratch->destroy();
        if (grafted != 0)
            return -1;
    }
}

} // namespace KVX

// Structural editing through a cursor: new children, deletion, and the
// operations that hand a subtree to the message's framing, grafting and text
// code with the cursor as position. The frame belongs to the message's
// KVXBinaryInternals and is changed only through its node operations.
// One thread at a time per document and its cursors.
#include <kvx/KVXBinaryIterator.h>

#include "binary/CursorWalk.h"
#include "binary/KVXBinaryInternals.h"

namespace KVX {

int KVXBinaryIterator::newChild(int id) {
    if (validateInternals() != 0)
        return -1;
    // newChild needs a node to add to: the path is empty after seekUp at the
    // root, or on a document that has no root.
    KVX_ASSERT(!path.entries.empty());
    if (path.entries.empty())
        return -1;
    KVXBinaryInternals &internals = doc();
    Internal::FrameView frame(internals);
    std::uint32_t offset = path.entries.back().offset;
    // A path that points at no node header inside the root section (stale or
    // damaged offsets) would make append compute its position from bytes that
    // are no node.
    if (!frame.usable(offset, frame.rootEnd))
        return -1;
    binary::Node current = frame.node(offset);
    // A node whose recorded size reaches past its parent is neither removed
    // nor resized: that would move bytes that are not its own.
    if (current.end() > frame.enclosingEnd(path.entries, path.entries.size() - 1))
        return -1;
    if (!current.isContainer()) {
        if (current.kind() != Internal::KindUntyped)
            return -1; // no typed leaf can take a child
        if (current.size() != 0 && path.entries.size() == 1) {
            // A root with text has no parent to be rebuilt under: removing
            // it would leave the frame without a root section to append to.
            // It is turned into an empty container in place, which is what
            // the move gives any other element, less the move.
            if (internals.replaceValue(path, Internal::KindStructure, nullptr, 0, false) != 0)
                return -1;
        } else if (current.size() != 0) {
            // An element with text becomes a container and loses the text.
            // It is rebuilt as the last child of its parent, so it moves to
            // the end of its siblings.
            int keptId = current.id();
            int keptNamespace = current.ns();
            internals.remove(path);
            if (internals.append(path, keptId, Internal::KindStructure, nullptr, 0, false) != 0)
                return -1;
            // Restoring "no namespace" reports -1 (0 has no name) and still
            // clears what append inherited; only a named one can fail.
            if (internals.setNamespace(path, keptNamespace) != 0 && keptNamespace != 0)
                return -1;
        } else {
            // An element without a value has the same node size as an empty
            // container, so it turns into one in place.
            Internal::store16(internals.buffer + offset + 4, Internal::KindStructure);
        }
    }
    return internals.append(path, id, Internal::KindUntyped, nullptr, 0, false);
}

int KVXBinaryIterator::newChild(std::string const &name) {
    if (validateInternals() != 0)
        return -1;
    int id = ids().intern(Internal::CharArray(name), Internal::TableElement);
    if (id == 0)
        return -1;
    return newChild(id);
}

int KVXBinaryIterator::deleteFromChild() {
    if (validateInternals() != 0)
        return -1;
    // Deleting needs a current node: the path is empty after seekUp at the root.
    KVX_ASSERT(!path.entries.empty());
    if (path.entries.empty())
        return -1;
    Internal::FrameView frame(doc());
    std::uint32_t offset = path.entries.back().offset;
    std::uint32_t bound = frame.enclosingEnd(path.entries, path.entries.size() - 1);
    // A node whose recorded size reaches past its parent or the frame is not
    // removed: closing its gap would move bytes that are not its own.
    if (!frame.usable(offset, bound) || frame.node(offset).end() > bound)
        return -1;
    doc().remove(path);
    return 0;
}

int KVXBinaryIterator::copyToChild(KVXMessageIterator const *source) {
    if (validateInternals() != 0)
        return -1;
    return message->deserialize(source, this);
}

int KVXBinaryIterator::deserializeToChild(char const *data, int length) {
    if (validateInternals() != 0)
        return -1;
    return message->deserialize(data, length, this);
}

int KVXBinaryIterator::fromTextToChild(char const *text) {
    if (validateInternals() != 0)
        return -1;
    return message->fromText(text, this);
}

// Always the 40500 form: a subtree is never written as text for an old peer.
int KVXBinaryIterator::serializeFromChild(char **out, int *size) const {
    if (message == nullptr)
        return -1;
    return message->serialize(out, size, this, 40500);
}

char *KVXBinaryIterator::toTextFromChild() const {
    KVXBinary *binary = getBinaryMessage();
    if (binary == nullptr)
        return nullptr;
    return binary->toText(this, std::string());
}

} // namespace KVX

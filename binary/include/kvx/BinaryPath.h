// A position in a binary document: the chain of (id, offset) records from the
// root to the current node, and the stack of saved namespace ids. Cursors, the
// text parser and grafting each hold their own. Plain value type.
#ifndef KVX_BINARYPATH_H
#define KVX_BINARYPATH_H

#include <vector>

namespace KVX {

// One node on a path: its element id as stored in its header, and the offset
// of that header from the start of the frame.
struct PathEntry {
    int id;
    unsigned int offset;
};

struct BinaryPath {
    // Root first, current node last.
    std::vector<PathEntry> entries;
    // Namespace ids saved with saveNamespace; the top is what new nodes take.
    std::vector<int> namespaces;
};

} // namespace KVX

#endif // KVX_BINARYPATH_H

// KVXSessionID: a session identifier, the string "kvx.<version>.<type>.<eid>.<target eid>.<unique
// id>" with readers for its fields. A plain value type: it owns its characters like any std::string
// and touches no other memory. Not synchronised; one object belongs to one thread at a time.
#ifndef KVX_KVXSESSIONID_H
#define KVX_KVXSESSIONID_H

#include <kvx/KVXDefs.h>

#include <string>

namespace KVX {

// The value is the string itself; there are no other fields. Nothing checks the form: readers
// take their field from between two dots and never look at the "kvx" prefix or count the dots.
struct KVX_EXPORT KVXSessionID : public std::string {
    // An empty identifier.
    KVXSessionID();

    // Takes `text` as it stands, unchecked.
    KVXSessionID(std::string const &text);

    KVXSessionID(KVXSessionID const &other);
    KVXSessionID &operator=(KVXSessionID const &other);
    ~KVXSessionID();

    // Replaces the value with "kvx." version "." type "." eid "." targetEid "." and a new unique
    // id. Nothing is escaped: a dot inside `eid` or `targetEid` goes in unchanged and then shifts
    // the readers below.
    void create(int version, int type, std::string const &eid, std::string const &targetEid);

    // The number between the first and the second dot, read with atoi (so text that does not
    // start with a digit reads as 0). 0 when either dot is missing.
    int getVersion() const;

    // The number between the second and the third dot, read with atoi. 0 when one of the first
    // three dots is missing.
    int getType() const;

    // Sets `out` to the text between the third and the fourth dot, counted from the left. When one
    // of those four dots is missing `out` is left as it was.
    void getEID(std::string &out) const;

    // As above; empty when the field is missing.
    std::string getEID() const;

    // Sets `out` to the text between the last dot and the dot before it, counted from the right.
    // When one of those two dots is missing `out` is left as it was.
    void getTargetEID(std::string &out) const;

    // As above; empty when the field is missing.
    std::string getTargetEID() const;

    // Equality of the whole strings without regard to (ASCII) case.
    bool operator==(std::string const &other) const;
    bool operator==(KVXSessionID const &other) const;

    // Negations of the equalities above.
    bool operator!=(std::string const &other) const;
    bool operator!=(KVXSessionID const &other) const;
};

} // namespace KVX

#endif // KVX_KVXSESSIONID_H

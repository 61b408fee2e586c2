// Attributes, namespaces and complex types of the XML reader: the ten
// attributes of the format by name, prefix declarations and their undoing,
// the namespace of an element, xsi:type and the "type" attribute. One parse
// at a time per document; AttributeIds is read-only after load.
#include "text/TextParser.h"

#include "binary/KVXBinaryInternals.h"
#include "text/TextScan.h"
#include "text/TextWriter.h"
#include "vocabulary/VocabularyConstants.h"

#include <string>

namespace KVX {
namespace Internal {

namespace {

std::map<CharArray, int> makeAttributeIds() {
    std::map<CharArray, int> ids;
    for (AttributeRow const &row : AttributeRows)
        ids.emplace(row.name, row.id);
    return ids;
}

} // namespace

// AttributeIds.find, by a pass over the eleven rows: their lengths tell most
// of them apart, where the tree compared the texts at every level. True, with
// `id` set, when `name` is one of them.
bool TextParser::findAttribute(CharArray const &name, int &id) {
    for (AttributeRow const &row : AttributeRows) {
        if (row.name.length == name.length &&
            sameText(row.name.data, name.data, static_cast<std::size_t>(name.length))) {
            id = row.id;
            return true;
        }
    }
    return false;
}

std::map<CharArray, int> const TextParser::AttributeIds = makeAttributeIds();

int TextParser::readAttributes(char const *&text, BinaryPath &path, bool skipping, bool hasPrefix,
                               CharArray const &prefix, bool &pushed) {
    KVXProtocolIDMap &ids = doc.ids;
    CharArray typeName;
    CharArray typePrefix;
    CharArray attrPrefix;
    bool deferred = false;
    CharArray deferredType;
    while (*text != '>' && *text != '/') {
        // The name runs to the first '=', blanks included.
        char const *equals = std::strchr(text, '=');
        if (equals == nullptr)
            return -1;
        CharArray attribute(text, static_cast<unsigned long long>(equals - text));
        text = equals + 1;
        enum { Known, DefaultNamespace, PrefixDeclaration, TypeAttribute, Ignored } role = Ignored;
        int attributeId = 0;
        CharArray declared;
        if (!skipping) {
            if (findAttribute(attribute, attributeId)) {
                role = Known;
            } else if (char const *colon = findChar(attribute, ':')) {
                CharArray before(attribute.data,
                                 static_cast<unsigned long long>(colon - attribute.data));
                CharArray after(colon + 1, attribute.length - before.length - 1);
                if (before == XmlnsName) {
                    role = PrefixDeclaration;
                    declared = after;
                } else if (after == TypeName) {
                    role = TypeAttribute;
                    attrPrefix = before;
                }
            } else if (attribute == XmlnsName) {
                role = DefaultNamespace;
            } else {
                return -1; // not one of the ten attributes of the format
            }
        }
        if (*text != '"')
            return -1;
        char const *valueStart = text + 1;
        char const *valueEnd = std::strchr(valueStart, '"');
        if (valueEnd == nullptr)
            return -1;
        CharArray value(valueStart, static_cast<unsigned long long>(valueEnd - valueStart));
        if (!skipping) {
            // Once this tag has pushed a default namespace, an attribute that
            // would be dropped pushes its value as one more: the format has
            // always read tags this way, and the order of attributes matters.
            if (role == DefaultNamespace || (role == Ignored && pushed)) {
                int ns = ids.intern(value, TableNamespace);
                if (ns == 0)
                    return -1;
                path.namespaces.push_back(ns);
                pushed = true;
            } else if (role == PrefixDeclaration) {
                int ns = ids.intern(value, TableNamespace);
                if (ns == 0)
                    return -1;
                declare(declared, ns);
            } else if (role == TypeAttribute) {
                char const *colon = findChar(value, ':');
                if (colon != nullptr) {
                    typePrefix =
                        CharArray(valueStart, static_cast<unsigned long long>(colon - valueStart));
                    typeName = CharArray(colon + 1, value.length - typePrefix.length - 1);
                } else {
                    typePrefix = CharArray();
                    typeName = value;
                }
            } else if (role == Known) {
                if (attributeId == 105 && !path.namespaces.empty()) {
                    deferred = true;
                    deferredType = value;
                } else {
                    if (appendNode(path, attributeId, KindUntyped, value.data,
                                   static_cast<std::size_t>(value.length), true) != 0)
                        return -1;
                    path.entries.pop_back();
                }
            }
        }
        text = valueEnd + 1;
        skipSpace(text);
        if (*text == '\0')
            return -1;
    }

    if (setElementNamespace(path, hasPrefix, prefix) != 0)
        return -1;
    if (deferred) {
        // A plain "type" under a default namespace: a type only when that
        // namespace is the schema-instance one, and then it has no prefix
        // and xmlTypeFromText refuses it.
        CharArray uri = ids.lookupName(path.namespaces.back());
        if (uri.empty())
            return -1;
        if (uri != XsiNamespace) {
            if (attrFromText(path, deferredType) != 0)
                return -1;
        } else {
            if (!typeName.empty())
                return -1;
            typeName = deferredType;
        }
    }
    if (!typeName.empty() && xmlTypeFromText(path, typeName, typePrefix, attrPrefix, scope) != 0)
        return -1;
    return 0;
}

int TextParser::setElementNamespace(BinaryPath &path, bool hasPrefix, CharArray const &prefix) {
    // No test of skipping: in a skipped part the last entry of the path is the
    // nearest ancestor that has a node, and it takes the namespace. The result
    // of the node operation is not used: an empty path has nothing to set.
    if (!hasPrefix) {
        if (!path.namespaces.empty())
            doc.setNamespace(path, path.namespaces.back());
        return 0;
    }
    Scope::const_iterator found = scope.find(prefix);
    if (found == scope.end())
        return -1; // undeclared prefix
    doc.setNamespace(path, found->second);
    return 0;
}

int TextParser::attrFromText(BinaryPath &path, CharArray const &value) {
    int result = appendNode(path, 105, KindUntyped, value.data,
                            static_cast<std::size_t>(value.length), true);
    if (result == 0 && !path.entries.empty())
        path.entries.pop_back();
    return result;
}

int TextParser::xmlTypeFromText(BinaryPath &path, CharArray const &typeName,
                                CharArray const &typePrefix, CharArray const &attrPrefix,
                                Scope const &prefixes) {
    if (attrPrefix.empty())
        return -1;
    Scope::const_iterator attributeScope = prefixes.find(attrPrefix);
    if (attributeScope == prefixes.end())
        return -1;
    CharArray uri = doc.ids.lookupName(attributeScope->second);
    if (uri.empty())
        return -1;
    if (uri != XsiNamespace)
        return attrFromText(path, typeName);
    // A prefixed type is named by its namespace URI, a colon and the local
    // name, which no fixed type has: it gets a dynamic type id.
    std::string fullName;
    if (!typePrefix.empty()) {
        Scope::const_iterator typeScope = prefixes.find(typePrefix);
        if (typeScope == prefixes.end())
            return -1;
        CharArray typeUri = doc.ids.lookupName(typeScope->second);
        if (typeUri.empty())
            return -1;
        fullName = typeUri.str() + ":";
    }
    fullName += typeName.str();
    int type = doc.ids.intern(CharArray(fullName), TableType);
    if (type == 0)
        return -1;
    return doc.setKind(path, type);
}

void TextParser::declare(CharArray const &prefix, int id) {
    Scope::iterator found = scope.find(prefix);
    if (found != scope.end()) {
        undo.push_back(Undo{prefix, true, found->second});
        found->second = id;
    } else {
        undo.push_back(Undo{prefix, false, 0});
        scope.emplace(prefix, id);
    }
}

void TextParser::undoDeclarations(std::size_t mark) {
    while (undo.size() > mark) {
        Undo const &last = undo.back();
        if (last.existed)
            scope[last.prefix] = last.previous;
        else
            scope.erase(last.prefix);
        undo.pop_back();
    }
}

} // namespace Internal
} // namespace KVX

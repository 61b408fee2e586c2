// Reply generation: what a reply packet inherits from its request. Works only
// through the messages' virtual operations and cursors, so it serves any
// protocol. The reply belongs to the caller (destroy()); the request is only
// read. One thread at a time per message.
#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>

#include <cstdlib>
#include <string>

namespace KVX {

namespace {

// The element `host`: the hops of a route, which a reply does not retrace.
constexpr int HostElement = 1068;

// The namespace of the packet protocol (".../webservices/kvx/4.0.0/protocol"),
// which every element that the reply's cursor adds takes.
constexpr int ProtocolNamespace = 297;

// The reply is destroyed if anything below throws before it is handed out.
struct ReplyHolder {
    KVXMessage *reply;
    ~ReplyHolder() {
        if (reply != nullptr) {
            reply->destroy();
        }
    }
    KVXMessage *release() {
        KVXMessage *const out = reply;
        reply = nullptr;
        return out;
    }
};

template <class Cursor> struct CursorHolder {
    Cursor *cursor;
    ~CursorHolder() { delete cursor; }
};

// The `src` children, without the hops, become the reply's `dst`. Both
// cursors stand at their roots before and after.
void copyRoute(KVXMessageIterator const &request, KVXMessageIterator &reply) {
    if (request.firstChild(std::string("src")) != 0) {
        return;
    }
    reply.newChild(std::string("dst"));
    if (request.firstChild() == 0) {
        do {
            reply.copyToChild(&request);
        } while (request.nextSibling() == 0);
        request.seekUp();
    }
    reply.deleteChild(HostElement);
    reply.seekUp();
    request.seekUp();
}

// A cookie is either a plain value or a subtree (the SOAP bridge parks the
// operation there); either way it comes back with the reply.
void copyCookie(KVXMessageIterator const &request, KVXMessageIterator &reply) {
    std::string value;
    if (request.getValue(value, std::string("cookie")) == 0) {
        // A value read from a frame may hold a 0 byte; the cookie ends there.
        reply.putValue(std::string(value.c_str()), std::string("cookie"));
        return;
    }
    char *buffer = nullptr;
    int size = 0;
    if (request.seek(std::string("cookie")) == 0 &&
        request.serializeFromChild(&buffer, &size) == 0) {
        reply.deserializeToChild(buffer, size);
        std::free(buffer);
    }
}

} // namespace

KVXMessage *KVXMessage::genReply(std::string const &origin) const {
    ReplyHolder holder{KVXMsgFactory::createNew()};
    // A factory that cannot make a message gives no reply rather than a crash.
    if (holder.reply == nullptr) {
        return nullptr;
    }
    KVXMessage &reply = *holder.reply;
    reply.create("packet");

    CursorHolder<KVXMessageIterator> replyCursor{reply.newIterator()};
    CursorHolder<KVXMessageIterator const> requestCursor{newIterator()};
    if (replyCursor.cursor == nullptr || requestCursor.cursor == nullptr) {
        return holder.release();
    }
    KVXMessageIterator &out = *replyCursor.cursor;
    KVXMessageIterator const &in = *requestCursor.cursor;

    out.saveNamespace(ProtocolNamespace);
    out.putValue(origin, std::string("origin"));

    std::string id;
    if (getID(id) == 0) {
        reply.setID(id, false);
    }
    int version = 0;
    if (getVersion(version) == 0) {
        reply.setVersion(version);
    }
    int priority = 0;
    if (getPriority(priority) == 0) {
        reply.setPriority(priority);
    }
    // Read through the outer form, which sees a session held outside the
    // tree, and written into the tree through the inner one.
    std::string session;
    if (getSession(session) == 0) {
        reply.setSessionID(session);
    }

    // A reply goes back to where the request came from.
    std::string requestOrigin;
    if (in.getValue(requestOrigin, std::string("origin")) == 0) {
        out.putValue(requestOrigin, std::string("target"));
    }

    copyRoute(in, out);
    copyCookie(in, out);
    out.newChild(std::string("data"));
    return holder.release();
}

KVXMessage *KVXMessageIterator::genReply(std::string const &origin) const {
    if (message == nullptr) {
        return nullptr;
    }
    return message->genReply(origin);
}

} // namespace KVX

// Intrusive reference counting for factories, driven by boost::intrusive_ptr.
// Owns no bytes beyond the object it counts. The count is atomic, so pointers
// to one object may be taken and dropped from several threads.
#include <kvx/KVXMessage.h>

namespace KVX {

KVXRefCounter::KVXRefCounter() : count(0) {}

KVXRefCounter::~KVXRefCounter() {}

void intrusive_ptr_add_ref(KVXRefCounter *object) {
    object->count.fetch_add(1);
}

void intrusive_ptr_release(KVXRefCounter *object) {
    // fetch_sub yields the value before the decrement: 1 means this was the
    // last reference, and no other thread can still reach the object.
    if (object->count.fetch_sub(1) == 1) {
        delete object;
    }
}

} // namespace KVX

/*
 * Intrusive lists. The `prev` of an element is null when it is on no list. Otherwise it points to the previous
 * element's link, or to the list's own link for the first element. All operations but destroy are O(1).
 */
#include <new>

#include "fwx_host/errors.h"
#include "host/runtime/fault.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"
#include "host/runtime/process.h"
#include "platform/runtime.h"

struct fwx_list {
    fwx_list_link_t head;  /* `next` is the first element, `prev` is unused */
    fwx_list_link_t *tail; /* the list's own link when the list is empty */
    bool owns_elements;
    uint32_t process; /* the process that created it */
};

namespace {

constexpr uint32_t kind_owning = 0;

bool is_linked(const fwx_list_link_t *link) {
    return link->prev != nullptr && link->prev->next == link;
}

/** Whether an element is on this list. Cannot tell this list from another, unless the element is the last one. */
bool is_on(const fwx_list_t *list, const fwx_list_link_t *link) {
    if (!is_linked(link)) return false;
    return link->next == nullptr ? list->tail == link : link->next->prev == link;
}

void unlink(fwx_list_t *list, fwx_list_link_t *link) {
    link->prev->next = link->next;
    if (link->next == nullptr) {
        list->tail = link->prev;
    } else {
        link->next->prev = link->prev;
    }
    *link = {nullptr, nullptr};
}

/** Removes an element while a fault is injected, which does not keep it on the list. Returns the fault's code. */
[[gnu::cold]] uint32_t remove_failing(fwx_list_t *list, fwx_list_link_t *link, uint32_t code) {
    if (list != nullptr && link != nullptr && is_on(list, link)) unlink(list, link);
    return code;
}

}  // namespace

extern "C" {

uint32_t fwx_list_init(fwx_list_t **list, uint32_t kind) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_LIST_INIT)) return code;
    if (list == nullptr) return FWX_HOST_ERR_BAD_ARG;
    auto *made = new (std::nothrow) fwx_list_t{};
    if (made == nullptr) return host_errno_nomem;
    made->tail = &made->head;
    made->owns_elements = kind == kind_owning;
    made->process = host_process();
    host_live.lists += 1;
    *list = made;
    return 0;
}

uint32_t fwx_list_head(fwx_list_t *list, void **head) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_LIST_HEAD)) return code;
    if (list == nullptr || head == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (list->process != host_process()) return FWX_HOST_ERR_FORKED; /* the parent owns and ends the elements */
    *head = list->head.next;
    return 0;
}

uint32_t fwx_list_insert_tail(fwx_list_t *list, void *element) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_LIST_INSERT_TAIL)) return code;
    if (list == nullptr || element == nullptr) return FWX_HOST_ERR_BAD_ARG;
    auto *link = static_cast<fwx_list_link_t *>(element);
    if (is_linked(link)) return FWX_HOST_ERR_LISTED;
    *link = {nullptr, list->tail};
    list->tail->next = link;
    list->tail = link;
    return 0;
}

uint32_t fwx_list_remove_element(fwx_list_t *list, void *element) {
    auto *link = static_cast<fwx_list_link_t *>(element);
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_LIST_REMOVE)) return remove_failing(list, link, code);
    if (list == nullptr || element == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (!is_on(list, link)) return FWX_HOST_ERR_NOT_LISTED;
    unlink(list, link);
    return 0;
}

uint32_t fwx_list_destroy(fwx_list_t *list) {
    const uint32_t code = host_fault_check(FWX_HOST_OP_LIST_DESTROY);
    if (list == nullptr) return code != 0 ? code : FWX_HOST_ERR_BAD_ARG;
    for (fwx_list_link_t *link = list->head.next, *next = nullptr; link != nullptr; link = next) {
        next = link->next;
        unlink(list, link);
        if (list->owns_elements) {
            fwx_free_named(link);
        } else {
            host_errors.destroyed_in_use += 1;
        }
    }
    delete list;
    host_live.lists -= 1;
    return code;
}

}  // extern "C"

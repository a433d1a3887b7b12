#include "base/tagged_list.h"

#include "base/allocation.h"

namespace zvqrn {
namespace {

void ReleaseNode(ListNode* node) {
  ReleaseItem(node->item, node->tag);
  std::free(node);
}

}  // namespace

ListNode* ListAppend(TaggedList* list, void* item, ListTag tag) {
  if (item == nullptr) {
    return nullptr;
  }
  auto* node = NewRecord<ListNode>();
  if (node == nullptr) {
    return nullptr;
  }
  node->item = item;
  node->tag = tag;
  ListNode** tail = &list->head;
  while (*tail != nullptr) {
    tail = &(*tail)->next;
  }
  *tail = node;
  return node;
}

void ListRemove(TaggedList* list, const ListNode* node) {
  ListNode** slot = &list->head;
  while (*slot != nullptr && *slot != node) {
    slot = &(*slot)->next;
  }
  if (*slot != nullptr) {
    ListNode* found = *slot;
    *slot = found->next;
    ReleaseNode(found);
  }
}

void ListFree(TaggedList* list) {
  while (list->head != nullptr) {
    ListNode* node = list->head;
    list->head = node->next;
    ReleaseNode(node);
  }
}

void DestroyTable(TaggedList* list, ServiceLock* lock) {
  AcquireServiceLock(lock);
  ListFree(list);
  DestroyHeldServiceLock(lock);
}

}  // namespace zvqrn

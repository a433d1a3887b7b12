#include "base/tagged_list.h"

#include "base/allocation.h"

namespace zvqrn {
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
  node->previous = list->tail;
  (list->tail != nullptr ? list->tail->next : list->head) = node;
  list->tail = node;
  return node;
}

void ListRemove(TaggedList* list, const ListNode* node) {
  ListNode* member = list->head;
  while (member != nullptr && member != node) {
    member = member->next;
  }
  if (member != nullptr) {
    ListRemoveMember(list, member);
  }
}

void ListRemoveMember(TaggedList* list, ListNode* node) {
  const std::int32_t tag = node->tag;
  ReleaseItem(ListTake(list, node), tag);
}

void* ListTake(TaggedList* list, ListNode* node) {
  (node->previous != nullptr ? node->previous->next : list->head) = node->next;
  (node->next != nullptr ? node->next->previous : list->tail) = node->previous;
  void* item = node->item;
  std::free(node);
  return item;
}

void ListFree(TaggedList* list) {
  ListNode* node = list->head;
  *list = TaggedList{};
  while (node != nullptr) {
    ListNode* next = node->next;
    ReleaseItem(node->item, node->tag);
    std::free(node);
    node = next;
  }
}

void DestroyTable(TaggedList* list, ServiceLock* lock) {
  AcquireServiceLock(lock);
  ListFree(list);
  DestroyHeldServiceLock(lock);
}

}  // namespace zvqrn

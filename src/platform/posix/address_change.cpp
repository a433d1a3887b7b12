#include "platform/address_change.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "platform/posix/interfaces.h"
#include "platform/thread.h"

namespace zvqrn::platform {

// A thread of its own reads the kernel's route socket and passes the news on.
struct AddressNotifier {
  Event* event;
  std::atomic<bool> armed;
  int routeSocket;
  std::atomic<bool> ending;
  int endPipe[2];           // a byte ends the thread's wait
  OwnInterface known;       // the machine's own one, as the thread has last seen it
  std::atomic<bool> ended;  // set by the thread's last use of this record
};

namespace {

// One change of an address comes with several messages (the address, its routes); they count as
// one when no further one follows within this time.
constexpr int SETTLE_MS = 50;
constexpr int SETTLE_ROUNDS = 20;

constexpr std::int32_t FAILED_WAIT_PAUSE_MS = 300;

constexpr std::int32_t END_LOOK_MS = 1;

// Changes of addresses, of routes (which address is the machine's own depends on the default route)
// and of links (one that goes down takes its routes along without a word).
int OpenRouteSocket() {
  const int route = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  sockaddr_nl name{};
  name.nl_family = AF_NETLINK;
  name.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE;
  if (route >= 0 && bind(route, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0) {
    close(route);
    return -1;
  }
  return route;
}

// What the kernel has told.
enum News { NOTHING, OTHERS_CHANGED, ADDRESS_CHANGED };

// The default route decides which address is the machine's own, so a change of it counts as one of
// the address, even when it has been changed back before anybody looked: whoever was told in
// between has read what is no longer true.
News NewsOf(const nlmsghdr* message) {
  if (message->nlmsg_type == RTM_NEWADDR || message->nlmsg_type == RTM_DELADDR) {
    return ADDRESS_CHANGED;
  }
  if ((message->nlmsg_type != RTM_NEWROUTE && message->nlmsg_type != RTM_DELROUTE) ||
      message->nlmsg_len < NLMSG_HDRLEN + sizeof(rtmsg)) {
    return OTHERS_CHANGED;
  }
  rtmsg route{};
  memcpy(&route, reinterpret_cast<const char*>(message) + NLMSG_HDRLEN, sizeof route);
  const bool isDefault = route.rtm_dst_len == 0 && route.rtm_table == RT_TABLE_MAIN;
  return isDefault ? ADDRESS_CHANGED : OTHERS_CHANGED;
}

// Takes what has arrived.  A message that was lost for want of room counts as the most.
News TakeNews(int route) {
  alignas(nlmsghdr) char bytes[8192];
  News news = NOTHING;
  for (;;) {
    const ssize_t length = recv(route, bytes, sizeof bytes, 0);
    if (length < 0 && errno == ENOBUFS) {
      news = ADDRESS_CHANGED;
      continue;
    }
    if (length <= 0) {
      return news;
    }
    auto left = static_cast<unsigned>(length);
    for (auto* message = reinterpret_cast<nlmsghdr*>(bytes); NLMSG_OK(message, left);
         message = NLMSG_NEXT(message, left)) {
      news = std::max(news, NewsOf(message));
    }
  }
}

// Takes what has arrived and what follows shortly.
News TakeSettledNews(pollfd (&waits)[2], int route) {
  News news = TakeNews(route);
  for (int round = 0; news != NOTHING && round < SETTLE_ROUNDS; round++) {
    if (poll(waits, 2, SETTLE_MS) <= 0 || waits[0].revents != 0) {
      break;
    }
    news = std::max(news, TakeNews(route));
  }
  return news;
}

// True when the machine's own interface or its address is no longer the one known.
bool Moves(OwnInterface* known, const OwnInterface& now) {
  const bool moved = now.index != known->index || now.address != known->address;
  *known = now;
  return moved;
}

void PassNewsOn(void* argument) {
  auto* notifier = static_cast<AddressNotifier*>(argument);
  pollfd waits[2] = {{notifier->endPipe[0], POLLIN, 0}, {notifier->routeSocket, POLLIN, 0}};
  News news = NOTHING;
  int patience = -1;
  while (!notifier->ending.load()) {
    if (poll(waits, 2, patience) < 0 && errno != EINTR) {
      // Tried again, but not in a spin: without this thread no change would be noticed any more.
      SleepMilliseconds(FAILED_WAIT_PAUSE_MS);
      continue;
    }
    news = std::max(news, TakeSettledNews(waits, notifier->routeSocket));
    OwnInterface now{};
    const bool readable = FindOwnInterface(&now) != HOST_ADDRESS_UNREADABLE;
    // What cannot be looked at yet is not told yet.
    patience = readable ? -1 : FAILED_WAIT_PAUSE_MS;
    if (!readable) {
      continue;
    }
    // Other news matter only when another interface has become the machine's own.
    const bool matters = Moves(&notifier->known, now) || news == ADDRESS_CHANGED;
    news = NOTHING;
    if (matters && notifier->armed.exchange(false)) {
      SignalEvent(notifier->event);
    }
  }
  notifier->ended.store(true);
}

// Whatever of it has been made.
void Release(AddressNotifier* notifier) {
  for (const int descriptor : {notifier->routeSocket, notifier->endPipe[0], notifier->endPipe[1]}) {
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
  std::free(notifier);
}

}  // namespace

AddressNotifier* MakeAddressNotifier(Event* event) {
  auto* notifier = static_cast<AddressNotifier*>(std::calloc(1, sizeof(AddressNotifier)));
  if (notifier == nullptr) {
    return nullptr;
  }
  notifier->event = event;
  notifier->routeSocket = OpenRouteSocket();
  // Read here and not by the thread: what changes before the thread begins must count as a change.
  FindOwnInterface(&notifier->known);
  if (pipe2(notifier->endPipe, O_CLOEXEC) != 0) {
    notifier->endPipe[0] = notifier->endPipe[1] = -1;
  }
  if (notifier->routeSocket >= 0 && notifier->endPipe[0] >= 0 &&
      StartThread(&PassNewsOn, notifier, STACK_FOR_LIBRARY) != 0) {
    return notifier;
  }
  Release(notifier);
  return nullptr;
}

bool ArmAddressNotifier(AddressNotifier* notifier) {
  ClearEvent(notifier->event);
  notifier->armed.store(true);
  return true;
}

void CloseAddressNotifier(AddressNotifier* notifier) {
  notifier->ending.store(true);
  // Written and not closed: a process that the host has forked holds the end open too.
  while (write(notifier->endPipe[1], "", 1) < 0 && errno == EINTR) {
  }
  while (!notifier->ended.load()) {
    SleepMilliseconds(END_LOOK_MS);
  }
  Release(notifier);
}

}  // namespace zvqrn::platform

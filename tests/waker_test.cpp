#include "platform/waker.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

#if !defined(_WIN32)
#include <sys/eventfd.h>

// In place of the system's (ld's --wrap), for a test that has something done before and after it.
static std::function<void()> betweenSteps;

extern "C" int __real_eventfd_read(int descriptor, eventfd_t* value);
extern "C" int __wrap_eventfd_read(int descriptor, eventfd_t* value);
extern "C" int __wrap_eventfd_read(int descriptor, eventfd_t* value) {
  const auto act = betweenSteps ? betweenSteps : [] {};
  act();
  const int result = __real_eventfd_read(descriptor, value);
  act();
  return result;
}
#endif

namespace zvqrn::platform {
namespace {

TEST(Waker, IsHeardOnceHoweverOftenItCalls) {
  ASSERT_TRUE(StartSockets());
  const SocketHandle socket = OpenUdpSocket();
  ASSERT_TRUE(BindDatagramPort(socket, 0, 0, false));
  Waker* waker = MakeWaker();
  ASSERT_NE(waker, nullptr);
  Endpoint self{0, static_cast<std::uint16_t>(BoundPort(socket))};
  ASSERT_TRUE(TextToAddress("127.0.0.1", &self.address));
  for (const int calls : {1, 5000}) {
    for (int i = 0; i < calls; i++) {
      Wake(waker);  // nobody waits yet
    }
    EXPECT_EQ(WaitReadableOrWoken(socket, waker, 5000), WAKER_WOKEN) << calls;
    EXPECT_EQ(WaitReadableOrWoken(socket, waker, 0), WAKER_TIMED_OUT) << calls;
  }
  ASSERT_TRUE(SendDatagramTo(socket, "x", 1, self));
  EXPECT_EQ(WaitReadableOrWoken(socket, nullptr, 5000), WAKER_SOCKET_READY);
  Wake(waker);
  EXPECT_EQ(WaitReadableOrWoken(socket, waker, 5000), WAKER_SOCKET_READY);
  char byte = 0;
  Endpoint sender{};
  EXPECT_EQ(ReceiveDatagram(socket, &byte, 1, &sender), 1);
  // Whether the bytes or the call were noticed first, the next call is heard.
  Wake(waker);
  EXPECT_EQ(WaitReadableOrWoken(socket, waker, 5000), WAKER_WOKEN);
  CloseWaker(waker);
  CloseSocket(socket);
  EndSockets();
}

#if !defined(_WIN32)

// Another thread calls in the middle of the look that notices the call before.
TEST(Waker, HearsACallBetweenItsSteps) {
  const SocketHandle socket = OpenUdpSocket();
  ASSERT_TRUE(BindDatagramPort(socket, 0, 0, false));
  Waker* waker = MakeWaker();
  ASSERT_NE(waker, nullptr);
  Wake(waker);
  betweenSteps = [waker] { std::thread([waker] { Wake(waker); }).join(); };
  EXPECT_EQ(WaitReadableOrWoken(socket, waker, 5000), WAKER_WOKEN);
  betweenSteps = nullptr;
  Wake(waker);
  EXPECT_EQ(WaitReadableOrWoken(socket, waker, 5000), WAKER_WOKEN);
  CloseWaker(waker);
  CloseSocket(socket);
}

#endif

}  // namespace
}  // namespace zvqrn::platform

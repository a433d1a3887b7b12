#include "platform/waker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/patience.h"

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

// What is published before a call is seen by the waiter, whose look may come at any moment of it.
TEST(Waker, LosesNoCallOfAnotherThread) {
  constexpr std::int32_t CALLS = 100000;
  ASSERT_TRUE(StartSockets());
  const SocketHandle socket = OpenUdpSocket();
  ASSERT_TRUE(BindDatagramPort(socket, 0, 0, false));
  Waker* waker = MakeWaker();
  ASSERT_NE(waker, nullptr);
  std::atomic<std::int32_t> published{0};
  std::thread caller([&] {
    while (published < CALLS) {
      published++;
      Wake(waker);
    }
  });
  WakerWait wait = WAKER_WOKEN;
  while (published < CALLS && wait == WAKER_WOKEN) {
    wait = WaitReadableOrWoken(socket, waker, test::PATIENCE_MS);
  }
  caller.join();
  EXPECT_EQ(wait, WAKER_WOKEN);
  CloseWaker(waker);
  CloseSocket(socket);
  EndSockets();
}

}  // namespace
}  // namespace zvqrn::platform

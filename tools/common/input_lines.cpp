#include "common/input_lines.h"

#include <memory>
#include <utility>

#include "platform/thread.h"

#if defined(_WIN32)
#include "platform/windows/windows_headers.h"
#else
#include <unistd.h>

#include <cerrno>
#endif

namespace zvqrn::tools {

namespace {

// More lines than these are left in the pipe until some are taken.
constexpr std::size_t WAITING_LIMIT = 1000;
constexpr std::int32_t REST_MS = 5;
constexpr char BYTE_ORDER_MARK[] = "\xEF\xBB\xBF";

// Shared with the reading thread, and so never released.
struct Mailbox {
  platform::Semaphore* turn = nullptr;
  std::vector<InputLine> lines;
  bool ended = false;
  platform::Event* came = nullptr;
};
Mailbox* mailbox = nullptr;

struct GiveBack {
  void operator()(platform::Semaphore* turn) const { platform::SignalSemaphore(turn); }
};
// (MinGW's threads of Windows know no std::mutex.)
using Turn = std::unique_ptr<platform::Semaphore, GiveBack>;

// Waits until nobody else is at the mailbox.
Turn TakeTurn() {
  platform::WaitSemaphore(mailbox->turn, platform::WAIT_WITHOUT_END);
  return Turn(mailbox->turn);
}

// Reads what there is, waiting for some; 0 at the end, and when reading fails.
std::size_t ReadSome(char* block, std::size_t size) {
#if defined(_WIN32)
  DWORD count = 0;
  const BOOL read =
      ReadFile(GetStdHandle(STD_INPUT_HANDLE), block, static_cast<DWORD>(size), &count, nullptr);
  return read ? count : 0;
#else
  ssize_t count = 0;
  do {
    count = read(STDIN_FILENO, block, size);
  } while (count < 0 && errno == EINTR);
  return count < 0 ? 0 : static_cast<std::size_t>(count);
#endif
}

void Deliver(InputLine line) {
  if (!line.text.empty() && line.text.back() == '\r') {
    line.text.pop_back();
  }
  if (line.text.rfind(BYTE_ORDER_MARK, 0) == 0) {
    line.text.erase(0, sizeof BYTE_ORDER_MARK - 1);
  }
  while (true) {
    {
      const Turn turn = TakeTurn();
      if (mailbox->lines.size() < WAITING_LIMIT) {
        mailbox->lines.push_back(std::move(line));
        break;
      }
    }
    platform::SleepMilliseconds(REST_MS);
  }
  platform::SignalEvent(mailbox->came);
}

void ReadLines(void* /*argument*/) {
  std::vector<char> block(65536);
  InputLine line{1, {}, false};
  while (const std::size_t count = ReadSome(block.data(), block.size())) {
    for (std::size_t i = 0; i < count; ++i) {
      if (block[i] == '\n') {
        const std::size_t next = line.number + 1;
        Deliver(std::move(line));
        line = {next, {}, false};
      } else if (line.text.size() < INPUT_LINE_LIMIT) {
        line.text.push_back(block[i]);
      } else {
        line.tooLong = true;
      }
    }
  }
  if (!line.text.empty()) {
    Deliver(std::move(line));
  }
  {
    const Turn turn = TakeTurn();
    mailbox->ended = true;
  }
  platform::SignalEvent(mailbox->came);
}

}  // namespace

bool StartInputLines(platform::Event* came) {
  mailbox = new Mailbox;
  mailbox->came = came;
  mailbox->turn = platform::MakeSemaphore(1, 1);
  return mailbox->turn != nullptr &&
         platform::StartThread(ReadLines, nullptr, platform::STACK_FOR_HOST_CALLBACKS) != 0;
}

bool TakeInputLines(std::vector<InputLine>* lines) {
  const Turn turn = TakeTurn();
  lines->clear();
  lines->swap(mailbox->lines);
  return !mailbox->ended || !lines->empty();
}

}  // namespace zvqrn::tools

#include "eventserver/connection_tables.h"

#include <gtest/gtest.h>

#include <string>

#include "base/allocation.h"
#include "base/service_state.h"
#include "base/text.h"
#include "eventserver/request_check.h"
#include "support/suspicious_block.h"

namespace zvqrn {
namespace {

class ConnectionTables : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(CreateConnectionTables()); }
  void TearDown() override {
    DestroyDeliveryList();
    DestroyJobTableAndSendQueue();
  }

  static JobRecord* Add(const char* uid, std::int32_t subevent, std::int32_t delivered = 0) {
    EventHeader header{};
    header.exchangeType = subevent == SUBEVENT_NONE ? EXCHANGE_SINGLE : EXCHANGE_PAIRED;
    header.subevent = subevent;
    CopyBounded(header.uid, uid, UID_SIZE);
    return AddJob(3, JobContent{&header, 1, NewBytes(8), 8, "0001", "p"}, delivered);
  }
  static std::string Uids() {
    std::string uids;
    for (const ListNode* node = service.jobTable.head; node != nullptr; node = node->next) {
      const auto* job = static_cast<JobRecord*>(node->item);
      uids += job->ended == 0 ? std::string(job->header.uid) + " " : "";
    }
    return uids;
  }
};

TEST_F(ConnectionTables, FindTheOldestOpenJob) {
  const JobRecord* first = Add("a", SUBEVENT_START, 1);
  JobRecord* delivering = Add("a", SUBEVENT_NONE);
  Add("A", SUBEVENT_START);
  EXPECT_EQ(FindOpenJob("a"), first);
  EXPECT_EQ(FindOpenJob("b"), nullptr);
  JobRecord* end = Add("a", SUBEVENT_END);
  EXPECT_EQ(FindOpenJob("a"), nullptr) << "an END with that uid closes it";
  EXPECT_NE(FindOpenJob("A"), nullptr) << "case matters";
  RemoveJobsWithUid("a");
  EXPECT_EQ(Uids(), "A ");
  // The later one's callback may return first.
  for (JobRecord* job : {end, delivering}) {
    EXPECT_STREQ(job->header.uid, "a") << "kept for the delivery that is at work";
    FinishJob(job);
    EXPECT_EQ(FindOpenJob("a"), nullptr);
  }
  EXPECT_EQ(Uids(), "A ");
  EXPECT_EQ(service.jobTable.head->next, nullptr);
}

TEST_F(ConnectionTables, JudgeAParent) {
  EXPECT_STREQ(CheckParentUid("s"), "2002");
  JobRecord* start = Add("s", SUBEVENT_START);
  EXPECT_STREQ(CheckParentUid("s"), "2002") << "not answered yet";
  start->delivered = 1;
  EXPECT_STREQ(CheckParentUid("s"), "0001");
  Add("s", SUBEVENT_END);
  EXPECT_STREQ(CheckParentUid("s"), "2002");
}

TEST_F(ConnectionTables, KeepTheirItemsAndReleaseThem) {
  EventHeader header{};
  EXPECT_EQ(AddJob(1, JobContent{nullptr, 1, NewBytes(8), 8, "0001", ""}), nullptr);
  EXPECT_EQ(AddJob(1, JobContent{&header, 1, nullptr, 8, "0001", ""}), nullptr);
  EXPECT_EQ(AddJob(1, JobContent{&header, 1, NewBytes(8), 8, nullptr, ""}), nullptr);
  QueueMessage(1, OutgoingContent{&header, "x", 0, "0001", nullptr, 1});
  QueueMessage(1, OutgoingContent{&header, nullptr, 5, "0001", nullptr, 1});
  EXPECT_EQ(service.sendQueue.head, nullptr);
  QueueMessage(1, AnswerWithoutBody(&header, "0001", nullptr));
  QueueMessage(1, OutgoingContent{&header, "two", 3, "0001", nullptr, 1});
  ASSERT_NE(service.sendQueue.head, nullptr);
  ASSERT_NE(service.sendQueue.head->next, nullptr);
  EXPECT_STREQ(static_cast<OutgoingMessage*>(service.sendQueue.head->next->item)->body, "two");
  const ListNode* entry = AddDeliveryEntry(nullptr);
  EXPECT_EQ(static_cast<DeliveryEntry*>(entry->item)->state.load(), DELIVERY_STARTING);
  Add("1", SUBEVENT_START);
  const JobRecord* middle = Add("2", SUBEVENT_START);
  Add("3", SUBEVENT_START);
  const ListNode stranger{};
  ListRemove(&service.jobTable, &stranger);
  ListRemove(&service.jobTable, middle->node);
  EXPECT_EQ(Uids(), "1 3 ");
  // What is left is released with the tables; the address sanitiser would see it otherwise.
  DestroyJobTableAndSendQueue();
  EXPECT_EQ(service.jobTable.head, nullptr);
  EXPECT_EQ(Add("late", SUBEVENT_START), nullptr);
  EXPECT_EQ(CheckParentUid("1"), nullptr) << "without its lock the table is not there";
}

TEST_F(ConnectionTables, StayAsLongAsWhatIsAtWork) {
  for (int i = 0; i < 1000; i++) {
    DropFinishedDeliveries();
    auto* entry = static_cast<DeliveryEntry*>(AddDeliveryEntry(nullptr)->item);
    entry->state.store(i % 100 == 0 ? DELIVERY_RUNNING : DELIVERY_DONE);
    Add(("s" + std::to_string(i)).c_str(), SUBEVENT_START, 1);
  }
  int entries = 0;
  for (const ListNode* node = service.deliveryList.head; node != nullptr; node = node->next) {
    entries++;
  }
  EXPECT_LE(entries, 3 * 10);
  EXPECT_GE(entries, 10);
  for (int i = 999; i >= 0; i--) {
    const std::string uid = "s" + std::to_string(i);
    ASSERT_NE(FindOpenJob(uid.c_str()), nullptr) << uid;
    RemoveJobsWithUid(uid.c_str());
    ASSERT_EQ(FindOpenJob(uid.c_str()), nullptr) << uid;
  }
  EXPECT_EQ(service.jobTable.head, nullptr);
  TearDown();
  SetUp();
  EXPECT_EQ(service.deliveryLook, nullptr) << "nothing of the last connection";
}

TEST_F(ConnectionTables, CheckRequestsInTheOrderOfTheRules) {
  Add("open", SUBEVENT_START, 1);
  const struct {
    const char* name;
    std::string headers;
    std::string body;
    std::int32_t result;
    const char* status;
    std::int32_t exchangeType;  // 0: the check did not come to it
    std::int32_t subevent;
    const char* version;
    const char* parentUid;
  } cases[] = {
      {"single", "x-protocol-version:1.00\r\nContent-Length:2\r\n", "xx", 1, "0001", 1, 0, "1.00",
       ""},
      {"minor version", "x-protocol-version:1.5\r\nContent-Length:2\r\n", "xx", 1, "0002", 1, 0,
       "1.5", ""},
      {"long version", "x-protocol-version:1.23456\r\nContent-Length:2\r\n", "xx", 1, "0002", 1, 0,
       "1.234", ""},
      {"no version", "x-subevent:STOP\r\n", "", -1, "1004", 0, 0, "", ""},
      {"bad version before all", "x-protocol-version:2.01\r\nx-subevent:STOP\r\n", "", -1, "1001",
       0, 0, "", ""},
      {"bad subevent before the body", "x-protocol-version:2.00\r\nx-subevent:STOP\r\n", "", -1,
       "1004", 1, 0, "2.00", ""},
      {"start in small letters",
       "x-protocol-version:2.00\r\nx-subevent:start\r\nContent-Length:1\r\n", "x", 1, "0001", 2, 1,
       "2.00", ""},
      {"END without parent", "x-protocol-version:2.00\r\nx-subevent:end\r\n", "", -1, "1004", 2, 2,
       "2.00", ""},
      {"END of a stranger", "x-protocol-version:2.00\r\nx-subevent:END\r\nx-parent-uid:7\r\n", "",
       -1, "2002", 2, 2, "2.00", ""},
      {"END without body", "x-protocol-version:2.00\r\nx-subevent:END\r\nx-parent-uid:open\r\n", "",
       -1, "1003", 2, 2, "2.00", "open"},
      {"END",
       "x-protocol-version:2.00\r\nx-subevent:END\r\nx-parent-uid:open\r\nContent-Length:1\r\n",
       "x", 1, "0001", 2, 2, "2.00", "open"},
      {"parent of a single request is not looked at",
       "x-protocol-version:2.00\r\nx-parent-uid:7\r\nContent-Length:1\r\n", "x", 1, "0001", 1, 0,
       "2.00", ""},
      {"length 0", "x-protocol-version:1.00\r\nContent-Length:0\r\n", "x", -1, "1003", 1, 0, "1.00",
       ""},
      {"length below 0", "x-protocol-version:1.00\r\nContent-Length:-3\r\n", "x", -1, "1003", 1, 0,
       "1.00", ""},
      {"no number", "x-protocol-version:1.00\r\nContent-Length:abc\r\n", "x", -1, "1003", 1, 0,
       "1.00", ""},
      {"no length", "x-protocol-version:1.00\r\n", "x", -1, "1003", 1, 0, "1.00", ""},
      {"no body", "x-protocol-version:1.00\r\nContent-Length:10\r\n", "", -1, "1003", 1, 0, "1.00",
       ""},
      {"first of two lengths",
       "x-protocol-version:1.00\r\nContent-Length:0\r\nContent-Length:1\r\n", "x", -1, "1003", 1, 0,
       "1.00", ""},
  };
  for (const auto& c : cases) {
    const test::SuspiciousBlock block =
        test::BlockOf("POST / HTTP/1.0\r\n" + c.headers + "\r\n" + c.body);
    ParsedMessage* made = nullptr;
    ASSERT_EQ(ParseHead(block.Data(), block.length, &made), KIND_REQUEST) << c.name;
    const OwnedParsedMessage parsed(made);
    EventHeader header{};
    CheckedRequest checked{};
    EXPECT_EQ(CheckRequestHeaders(made, &header, &checked), c.result) << c.name;
    EXPECT_STREQ(checked.status, c.status) << c.name;
    EXPECT_EQ(header.exchangeType, c.exchangeType) << c.name;
    EXPECT_EQ(header.subevent, c.subevent) << c.name;
    EXPECT_STREQ(header.protocolVersion, c.version) << c.name;
    EXPECT_STREQ(checked.parentUid, c.parentUid) << c.name;
  }
}

}  // namespace
}  // namespace zvqrn

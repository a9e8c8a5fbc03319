#include "NorvekGeneralMIB/ReloadCauseTableHandler.h"

#include <deque>
#include <initializer_list>
#include <memory>
#include <stdexcept>

#include "NorvekGeneralMIB/ReloadCauseTable.h"
#include "NorvekGeneralMIB/TableTest.h"

namespace NorvekGeneralMIB {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kOctetString = 4;
constexpr int kGenErr = 5;
constexpr int kNotWritable = 17;
constexpr int kNoSuchObject = 128;

// The text of a DateAndTime in UTC on the hour of a day.
std::string dateAndTime(int year, int month, int day, int hour, int minute, int second) {
  std::string octets;
  for (const int octet :
       {year / 256, year % 256, month, day, hour, minute, second, 0, int{'+'}, 0, 0}) {
    octets.push_back(static_cast<char>(octet));
  }
  return octets;
}

// One request as net-snmp hands it to the handler, with or without a row.
class Request {
 public:
  Request(netsnmp_agent_request_info& reqinfo, unsigned column, RowIterator* row) {
    request.requestvb = &varbind;
    request.agent_req_info = &reqinfo;
    request.parent_data = nullptr;
    info.colnum = column;
    netsnmp_request_add_list_data(&request,
                                  netsnmp_create_data_list(TABLE_HANDLER_NAME, &info, nullptr));
    if (row != nullptr) netsnmp_insert_iterator_context(&request, row);
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() {
    netsnmp_free_request_data_sets(&request);
    snmp_reset_var_buffers(&varbind);
  }

  int type() const { return varbind.type; }
  std::string value() const {
    return {reinterpret_cast<const char*>(varbind.val.string), varbind.val_len};
  }
  // What the handler set: an error status, an exception, or 0.
  int error() const { return varbind.type >= SNMP_NOSUCHOBJECT ? varbind.type : request.status; }
  bool isUntouched() const { return error() == 0 && type() == ASN_NULL; }

  netsnmp_request_info request{};

 private:
  netsnmp_variable_list varbind = [] {
    netsnmp_variable_list list{};
    list.type = ASN_NULL;
    return list;
  }();
  netsnmp_table_request_info info{};
};

class ReloadCauseTableHandlerTest : public TableTest {
 protected:
  ReloadCauseTableHandlerTest() { modeIs(MODE_GET); }

  void modeIs(int mode) { reqinfo.mode = mode; }
  // Adds a request at the end of the list, on that row.
  Request& requestIs(unsigned column, const MiscSnmp::ReloadCauseKey& row) {
    rows.push_back(std::make_unique<RowIterator>(model->reloadCauseTable().startAt(row)));
    return add(column, rows.back().get());
  }
  Request& requestWithoutRowIs(unsigned column) { return add(column, nullptr); }

  int handle() {
    for (std::size_t i = 1; i < requests.size(); ++i) {
      requests[i - 1]->request.next = &requests[i]->request;
    }
    return norvekReloadCauseTable_handler(nullptr, nullptr, &reqinfo, &requests.front()->request);
  }
  // The two lines of each call, and what follows.
  static Lines called(int mode, const Lines& rest) {
    Lines lines{"Snmp 2: norvekReloadCauseTable_handler",
                "Snmp 2: norvekReloadCauseTable_handler: request mode " + std::to_string(mode)};
    lines.insert(lines.end(), rest.begin(), rest.end());
    return lines;
  }
  static std::string get(const char* object, const char* rowKey) {
    return std::string("Snmp 2: norvekReloadCauseTable_handler: request GET for column ") + object +
           ", key Value('MiscSnmp::ReloadCauseKey', ** " + rowKey + ")";
  }
  static std::string processed(const Request& request) {
    return "Snmp 2: norvekReloadCauseTable_handler: request " + text(&request.request) +
           " already processed";
  }
  void causeIs(const Qel::String& description, double time) {
    model->reloadCauseTableDelAll();
    model->reloadCauseTableIs(key, support::reload({{description, time}}));
  }

  const MiscSnmp::ReloadCauseKey key{1, 0, 1};
  const char* const keyText = "{'unitIndex': 1, 'instanceIndex': 0, 'causeIndex': 1}";
  netsnmp_agent_request_info reqinfo{};
  std::deque<std::unique_ptr<RowIterator>> rows;
  std::deque<std::unique_ptr<Request>> requests;

 private:
  Request& add(unsigned column, RowIterator* row) {
    requests.push_back(std::make_unique<Request>(reqinfo, column, row));
    return *requests.back();
  }
};

using HandlerTest = ReloadCauseTableHandlerTest;

TEST_F(HandlerTest, GetOfTheDescriptionGivesItsOctets) {
  const std::string description("Power\0loss \xff", 12);
  causeIs(description, 1700000000.9);
  const Request& request = requestIs(4, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(request.error(), 0);
  EXPECT_EQ(request.type(), kOctetString);
  EXPECT_EQ(request.value(), description);
  EXPECT_EQ(trace.lines(), called(160, {get("norvekReloadCauseDescription", keyText)}));
}

TEST_F(HandlerTest, GetOfTheTimeGivesADateAndTime) {
  causeIs("Power loss", 1700000000.9);
  const Request& request = requestIs(5, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(request.error(), 0);
  EXPECT_EQ(request.type(), kOctetString);
  EXPECT_EQ(request.value(), dateAndTime(2023, 11, 14, 22, 13, 20));
  EXPECT_EQ(trace.lines(), called(160, {get("norvekReloadTime", keyText)}));
}

TEST_F(HandlerTest, TimeZeroIsEncodedLikeAnyOther) {
  causeIs("x", 0.0);
  const Request& request = requestIs(5, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(request.value(), dateAndTime(1970, 1, 1, 0, 0, 0));
}

TEST_F(HandlerTest, TheTimeIsReadAsAnUnsignedCount) {
  causeIs("x", 4294967295.0);
  const Request& request = requestIs(5, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(request.value(), dateAndTime(2106, 2, 7, 6, 28, 15));
}

TEST_F(HandlerTest, AMissingCauseHasAnEmptyDescriptionAndTimeZero) {
  model->reloadCauseTableIs({1, 0, 99}, instance);
  const Request& description = requestIs(4, {1, 0, 99});
  const Request& time = requestIs(5, {1, 0, 99});
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(description.type(), kOctetString);
  EXPECT_EQ(description.value(), "");
  EXPECT_EQ(time.value(), dateAndTime(1970, 1, 1, 0, 0, 0));
}

TEST_F(HandlerTest, ARowThatLeftTheTableIsStillAnswered) {
  causeIs("Power loss", 1.0);
  const Request& request = requestIs(4, key);
  model->reloadCauseTableDel(key);
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(request.value(), "Power loss");
}

TEST_F(HandlerTest, ADescriptionOf1024OctetsFits) {
  causeIs(std::string(1024, 'x'), 1.0);
  const Request& request = requestIs(4, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(request.value(), std::string(1024, 'x'));
}

TEST_F(HandlerTest, ADescriptionThatDoesNotFitFailsTheHeadOfTheList) {
  rowIs(0, 1);
  causeIs(std::string(1025, 'x'), 1.0);
  rowIs(0, 1);
  const Request& head = requestIs(4, {0, 0, 1});
  const Request& failing = requestIs(4, key);
  const Request& last = requestIs(4, {0, 0, 1});
  EXPECT_EQ(handle(), kGenErr);
  EXPECT_EQ(head.error(), kGenErr);
  EXPECT_TRUE(failing.isUntouched());
  EXPECT_TRUE(last.isUntouched());
  EXPECT_EQ(
      trace.lines(),
      called(160, {get("norvekReloadCauseDescription",
                       "{'unitIndex': 0, 'instanceIndex': 0, 'causeIndex': 1}"),
                   get("norvekReloadCauseDescription", keyText),
                   "Snmp 2: handle_norvekReloadCauseTable - StringToAsnOctetString failed for: "
                   "causeDesc"}));
}

TEST_F(HandlerTest, ATimeWithoutEncodingFailsTheHeadOfTheList) {
  rowIs(key);
  const Request& head = requestIs(4, key);
  const Request& failing = requestIs(5, key);
  interposed().dateAndTime = [](double) { return -1; };
  EXPECT_EQ(handle(), kGenErr);
  EXPECT_EQ(head.error(), kGenErr);
  EXPECT_TRUE(failing.isUntouched());
  EXPECT_EQ(
      trace.lines(),
      called(160, {get("norvekReloadCauseDescription", keyText), get("norvekReloadTime", keyText),
                   "Snmp 2: handle_norvekReloadCauseTable - SecondsToAsnDateAndTime failed "
                   "for: reloadTime"}));
}

TEST_F(HandlerTest, ATimeOfAWrongLengthFailsTheHeadOfTheList) {
  rowIs(key);
  const Request& head = requestIs(4, key);
  const Request& failing = requestIs(5, key);
  interposed().dateAndTime = [](double) { return 9; };
  EXPECT_EQ(handle(), kGenErr);
  EXPECT_EQ(head.error(), kGenErr);
  EXPECT_TRUE(failing.isUntouched());
  EXPECT_EQ(
      trace.lines(),
      called(160, {get("norvekReloadCauseDescription", keyText), get("norvekReloadTime", keyText),
                   "Snmp 2: handle_norvekReloadCauseTable - entity "
                   "/<sysname>/snmp/misc/generalMib length out of range: reloadTime (9)"}));
}

TEST_F(HandlerTest, ATimeHasRoomForElevenOctets) {
  rowIs(key);
  requestIs(5, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(interposed().timeBufferLength, 11U);
}

TEST_F(HandlerTest, ATimeOfEightOctetsIsTaken) {
  rowIs(key);
  const Request& request = requestIs(5, key);
  interposed().dateAndTime = [](double) { return 8; };
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(request.type(), kOctetString);
  EXPECT_EQ(request.value().size(), 8U);
}

TEST_F(HandlerTest, AnotherColumnIsNoSuchObjectAndEndsTheCall) {
  rowIs(key);
  const Request& before = requestIs(4, key);
  const Request& sixth = requestIs(6, key);
  const Request& behind = requestIs(4, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_EQ(before.value(), "cause 1");
  EXPECT_EQ(sixth.error(), kNoSuchObject);
  EXPECT_TRUE(behind.isUntouched());
  EXPECT_EQ(trace.lines(), called(160, {get("norvekReloadCauseDescription", keyText),
                                        "Snmp 0: norvekReloadCauseTable invalid column 6"}));
}

TEST_F(HandlerTest, AProcessedRequestIsSkippedAndTheNextIsAnswered) {
  rowIs(key);
  Request& done = requestIs(4, key);
  done.request.processed = 1;
  const Request& open = requestIs(4, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_TRUE(done.isUntouched());
  EXPECT_EQ(open.value(), "cause 1");
  EXPECT_EQ(trace.lines(),
            called(160, {processed(done), get("norvekReloadCauseDescription", keyText)}));
}

TEST_F(HandlerTest, ARequestWithoutARowEndsTheCallWithNoError) {
  rowIs(key);
  const Request& missing = requestWithoutRowIs(4);
  const Request& behind = requestIs(4, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_TRUE(missing.isUntouched());
  EXPECT_TRUE(behind.isUntouched());
  EXPECT_EQ(trace.lines(),
            called(160, {"Snmp 2: norvekReloadCauseTable_handler: null data context in request"}));
}

TEST_F(HandlerTest, AContextAtTheEndOfTheTableIsNoRow) {
  const Request& atEnd = requestIs(4, {9, 9, 9});
  EXPECT_EQ(handle(), 0);
  EXPECT_TRUE(atEnd.isUntouched());
  EXPECT_EQ(trace.lines(),
            called(160, {"Snmp 2: norvekReloadCauseTable_handler: null data context in request"}));
}

TEST_F(HandlerTest, InAnotherModeTheFirstOpenRequestAloneIsNotWritable) {
  rowIs(key);
  for (const int mode : std::initializer_list<int>{MODE_SET_RESERVE1, MODE_SET_RESERVE2,
                                                   MODE_SET_ACTION, MODE_SET_COMMIT, MODE_SET_FREE,
                                                   MODE_SET_UNDO, MODE_GETNEXT, MODE_GETBULK}) {
    requests.clear();
    modeIs(mode);
    Request& done = requestIs(4, key);
    done.request.processed = 1;
    const Request& first = requestIs(5, key);
    const Request& second = requestIs(4, key);
    EXPECT_EQ(handle(), 0);
    EXPECT_TRUE(done.isUntouched());
    EXPECT_EQ(first.error(), kNotWritable);
    EXPECT_TRUE(second.isUntouched());
    EXPECT_EQ(trace.takeLines(),
              called(mode, {processed(done), "Snmp 0: norvekReloadCauseTable invalid column 5"}));
  }
}

TEST_F(HandlerTest, InAnotherModeNothingIsLeftToRefuseWhenAllIsProcessed) {
  modeIs(MODE_SET_COMMIT);
  Request& done = requestWithoutRowIs(4);
  done.request.processed = 1;
  EXPECT_EQ(handle(), 0);
  EXPECT_TRUE(done.isUntouched());
  EXPECT_EQ(trace.lines(), called(MODE_SET_COMMIT, {processed(done)}));
}

TEST_F(HandlerTest, NothingIsTracedOrBuiltWhenTheLevelIsOff) {
  trace.levelIs("Snmp", 1);
  rowIs(key);
  requestIs(4, key);
  EXPECT_EQ(handle(), 0);
  EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST_F(HandlerTest, NoExceptionLeavesTheHandler) {
  trace.levelIs("Snmp", 0);
  rowIs(key);
  const Request& request = requestIs(5, key);
  interposed().dateAndTime = [](double) -> int { throw std::runtime_error("a fault"); };
  EXPECT_EQ(handle(), kGenErr);
  EXPECT_EQ(request.error(), kGenErr);
  EXPECT_THAT(trace.lines(), ElementsAre("Snmp 0: norvekReloadCauseTable_handler failed: a fault"));
}

TEST_F(HandlerTest, NotEvenAnExceptionOfNoKnownKindLeavesIt) {
  rowIs(key);
  const Request& request = requestIs(5, key);
  interposed().dateAndTime = [](double) -> int { throw 42; };
  EXPECT_EQ(handle(), kGenErr);
  EXPECT_EQ(request.error(), kGenErr);
}

}  // namespace
}  // namespace NorvekGeneralMIB

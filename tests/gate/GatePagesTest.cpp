#include "gate/console/ApiRequest.h"
#include "gate/http/BodyText.h"
#include "gate/metrics/MetricFormat.h"
#include "tests/gate/GateHarness.h"

namespace {

/// The body of an answer.
std::string BodyOf(const std::string& answer) {
  return answer.substr(std::min(answer.find("\r\n\r\n") + 4, answer.size()));
}

TEST_F(GateFixture, EachPageAnswersWhoMayAskAndNothingElse) {
  std::string text = "# TYPE qmt_fake gauge\n";
  text.append(200'000, 'x');
  Begin([&](const Json& request) -> std::string {
    const Json* records = request.Find("records");
    const Json first = records == nullptr || records->Size() == 0 ? Json("") : (*records)[0];
    if (first == Json("NONE")) {
      return R"({"ok":false,"error":{"code":"bad-field","message":"the record NONE is unknown"}})"
             "\n";
    }
    if (first == Json("GONE")) {
      return R"({"ok":true,"results":[{"record":"GONE","error":{"code":"unknown-record"}}]})"
             "\n";
    }
    if (request["op"] == Json("alarm")) {
      // A question's id comes back in front.
      const std::string id = JsonText(request["id"]);
      return "{\"id\":" + id +
             (id == "17" ? R"(,"ok":true,"alarm":{"id":17}})"
                         : R"(,"ok":false,"error":{"code":"unknown-alarm"}})") +
             '\n';
    }
    const Json* names = request.Find("names");
    if (names != nullptr && request["format"] == Json("openmetrics")) {
      return R"({"ok":false,"error":{"code":"bad-field","message":"not here","field":"names"}})"
             "\n";
    }
    if (request["op"] == Json("metrics")) {
      return JsonText(
                 Json{{"ok", true},
                      {"metrics", Json{{"content_type", names == nullptr ? request["format"].Text()
                                                                         : names->Text()},
                                       {"bytes", text.size()}}}}) +
             '\n' + text;
    }
    return JsonText(Json{{"ok", true}, {"asked", request}}) + '\n';
  });
  const std::string longPath = "/api/1/get?records=" + std::string(5000, 'x');
  const struct {
    const char* method;
    const char* path;
    const char* headers;
    const char* status;
    const char* part;
  } cases[] = {
      {"GET", "/", "", "200", "text/html"},
      {"GET", "/", "", "200", "Content-Security-Policy: default-src 'self'; "},
      {"GET", "/assets/dygraph.min.js", "", "200", "Dygraph"},
      {"GET", "/assets/nothing.js", "", "404", "no such page\n"},
      {"GET", "/-/healthy", "", "200", "healthy\n"},
      {"GET", "/-/ready?x=1", "", "200", "ready\n"},
      {"GET", "/metrics", "", "200", "text\r\n"},
      {"GET", "/metrics", "Accept: application/openmetrics-text\r\n", "200", "openmetrics\r\n"},
      {"GET", "/metrics?collect[]=NONE", "", "400", "\r\n\r\nthe record NONE is unknown\n"},
      {"GET", "/metrics/", "", "404", "no such page\n"},
      {"GET", "/metrics/node", "", "200", "Content-Type: node\r\n"},
      {"GET", "/metrics/node", "Accept: application/openmetrics-text\r\n", "404",
       "\r\n\r\nnot here\n"},
      {"GET", "/metrics/node?collect[]=PI", "", "400", "takes no collect[]\n"},
      {"GET", "/../etc/passwd", "", "404", "no such page\n"},
      {"POST", "/metrics", "", "405", "Allow: GET, HEAD\r\n"},
      {"BREW", "/-/ready", "", "405", "only GET and HEAD\n"},
      {"GET", "/api/1/status", "", "401", "WWW-Authenticate: Bearer"},
      {"GET", "/api/1/status", "Authorization: Bearer bad\r\n", "401", "\"unauthorized\""},
      {"GET", "/api/1/status", "Authorization: Basic Z29vZDpnb29k\r\n", "401", "\"ok\":false"},
      {"GET", "/api/1/events", "", "401", "\"unauthorized\""},
      {"GET", "/api/1/status", kToken, "200", R"("asked":{"op":"status"}})"},
      {"GET", "/api/1/gate", kToken, "200", R"("failed_logins":)"},
      {"GET", "/api/1/last?records=GONE", kToken, "404", "unknown-record"},
      {"GET", "/api/1/last?records=GONE,X", kToken, "200", "unknown-record"},
      {"GET", "/api/1/alarm?id=17", kToken, "200", R"("alarm":{"id":17})"},
      {"GET", "/api/1/alarm?id=18", kToken, "404", "unknown-alarm"},
      {"GET", "/api/2/status", kToken, "404", "\"no-page\""},
      {"GET", "/api/1/shutdown", kToken, "404", "\"no-page\""},
      {"GET", "/api/1/status?x=1", kToken, "400", R"("field":"x")"},
      {"GET", "/api/1/history?record=PI&since=noon", kToken, "400", R"("field":"since")"},
      {"GET", "/api/1/events?since=-1", kToken, "400", R"("field":"since")"},
      {"GET", "/api/1/status?a=%00", kToken, "400", "zero byte"},
      {"GET", longPath.c_str(), kToken, "413", R"({"ok":false,"error":{"code":"too-long",)"},
  };
  for (const auto& row : cases) {
    const std::string answer = Ask(row.path, row.headers, row.method);
    EXPECT_THAT(answer, StartsWith(std::string("HTTP/1.1 ") + row.status)) << row.path;
    EXPECT_THAT(answer, HasSubstr(row.part)) << row.path;
  }
  EXPECT_EQ(BodyOf(Ask("/metrics")), text);
  const std::string packed = Ask("/metrics", "Accept-Encoding: br, gzip;q=0.5\r\n");
  EXPECT_THAT(packed, HasSubstr("Content-Encoding: gzip"));
  EXPECT_EQ(Gunzip(BodyOf(packed)), text);
  for (const char* refused : {"gzip;q=0", "br, gzip ; q=0.0", "gzipped", "*;q=1"}) {
    EXPECT_EQ(BodyOf(Ask("/metrics", std::string("Accept-Encoding: ") + refused + "\r\n")), text)
        << refused;
  }
  const std::string head = Ask("/metrics", "", "HEAD");
  EXPECT_THAT(head, HasSubstr("Content-Length: " + std::to_string(text.size())));
  EXPECT_EQ(BodyOf(head), "");
  const std::string page = Ask("/");
  const std::size_t tag = page.find("ETag: ") + 6;
  EXPECT_THAT(Ask("/", "If-None-Match: " + page.substr(tag, page.find('\r', tag) - tag) + "\r\n"),
              StartsWith("HTTP/1.1 304"));
  daemon->Stop();
  EXPECT_THAT(Ask("/metrics"), StartsWith("HTTP/1.1 503"));
  EXPECT_THAT(Ask("/-/ready"), StartsWith("HTTP/1.1 503"));
  EXPECT_THAT(Ask("/api/1/status"), AllOf(StartsWith("HTTP/1.1 503"), HasSubstr("no-daemon")));
  daemon->Start();
  EXPECT_THAT(Ask("/api/1/status"), HasSubstr("\"asked\""));
}

TEST(BodyTextTest, WhatFindsNoRoomAtItsEndIsNoBody) {
  for (const bool isFull : {false, true}) {
    BodyText body(true);
    EXPECT_TRUE(body.Add("{}"));
    BodyRoom others;
    EXPECT_TRUE(!isFull || others.Grow(BodyRoom::kMaxBytes - 15));
    HttpAnswer answer;
    EXPECT_EQ(body.Finish(answer), !isFull);
    EXPECT_EQ(Gunzip(answer.body), isFull ? "" : "{}");
  }
}

TEST(ApiRequestTest, AQueryIsARequestOfTheControlProtocol) {
  const struct {
    const char* name;
    HttpExchange::Arguments query;
    const char* request;  ///< or "FIELD: message"
  } cases[] = {
      {"records", {}, R"({"op":"records"})"},
      {"schema", {{"record", "3:PD"}}, R"({"op":"schema","record":"PD","category":"3"})"},
      {"schema", {}, "record: must be the name of a record"},
      {"get",
       {{"records", "PI,4:CPUP,"}, {"rates", "1"}},
       R"({"op":"get","records":["PI",{"record":"CPUP","category":"4"}],"rates":true})"},
      {"get", {}, "records: must be names of records"},
      {"get", {{"records", "PI"}, {"rates", "yes"}}, "rates: must be 1 or 0"},
      {"get", {{"records", "PI"}, {"shutdown", "1"}}, "shutdown: unknown parameter"},
      {"last",
       {{"records", "PDI"},
        {"where", "PID>1"},
        {"where", "a=b,c"},
        {"columns", "PID,CPU %"},
        {"columns", "Name"},
        {"sort", "-PID"},
        {"limit", "5"}},
       R"({"op":"last","records":["PDI"],"where":["PID>1","a=b,c"],)"
       R"("columns":["PID","CPU %","Name"],"sort":["-PID"],"limit":5})"},
      {"history",
       {{"record", "PI"},
        {"since", "-5"},
        {"until", "9223372036854775807"},
        {"after", "7,8"},
        {"points", "10"},
        {"by", ""}},
       R"({"op":"history","record":"PI","since":-5,"until":9223372036854775807,"after":[7,8],)"
       R"("points":10,"by":[]})"},
      {"history", {{"record", "PI"}, {"at", "1"}, {"at", "2"}}, "at: is given twice"},
      {"history", {{"record", "PI"}, {"until", "9223372036854775808"}}, "until: must be a whole"},
      {"history", {{"record", "PI"}, {"points", ""}}, "points: must be a whole"},
      {"history", {{"record", "PI"}, {"after", "7"}}, "after: must be the two numbers"},
      {"workgroups",
       {{"pid", "1"}},
       R"({"op":"report","report":"workgroups","arguments":{"pid":"1"}})"},
      {"cgroups",
       {{"path", "/a*"}, {"depth", "1"}},
       R"({"op":"last","records":["CGRP"],)"
       R"("where":["Path ~ /a\\**","Path !~ /a\\*[!/]*","Path !~ /?*/?*"]})"},
      {"cgroups", {{"path", "/"}}, R"({"op":"last","records":["CGRP"]})"},
      {"cgroups", {{"depth", "8"}}, "depth: must be a whole number from 0 to 7"},
      {"log", {{"lines", "9"}}, R"({"op":"log","lines":9})"},
      {"alarms",
       {{"since", "5"}, {"until", "9"}, {"limit", "3"}, {"state", "active"}},
       R"({"op":"alarms","since":5,"until":9,"limit":3,"state":"active"})"},
      {"alarm", {{"id", "17"}}, R"({"op":"alarm","id":17})"},
      {"alarm", {}, "id: must be a whole number"},
      {"config", {}, ": no such page"},
  };
  for (const auto& row : cases) {
    const auto read = ReadApiRequest(row.name, row.query);
    if (const auto* fault = std::get_if<QueryFault>(&read)) {
      const std::string text = row.request;
      const std::string field = text.substr(0, text.find(": "));
      EXPECT_EQ(fault->field, field) << row.name;
      EXPECT_THAT(fault->message, HasSubstr(text.substr(field.size() + 2))) << row.name;
    } else {
      EXPECT_EQ(JsonText(std::get<Json>(read)), row.request) << row.name;
    }
  }
}

TEST(ApiRequestTest, NamesBeyondTheLimitOfEventsCostNothing) {
  std::string names;
  for (int number = 0; number < 40'000; ++number) {
    names += std::to_string(number) + ',';
  }
  const auto begin = std::chrono::steady_clock::now();
  const auto read = ReadEventQuery({{"records", names}}, "");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_THAT(std::get<QueryFault>(read).message, HasSubstr("more than 64 names"));
}

TEST(MetricFormatTest, TheFormatGoesByTheAcceptHeader) {
  const struct {
    const char* accept;
    const char* format;
  } cases[] = {
      {"", "text"},
      {"*/*", "text"},
      {"application/openmetrics-text", "openmetrics"},
      {"application/openmetrics-text;version=1.0.0;q=0.8,text/plain;q=0.5,*/*;q=0.1",
       "openmetrics"},
      {"text/plain;version=0.0.4;q=1,*/*;q=0.1", "text"},
      {"text/plain, application/openmetrics-text;q=0.5", "text"},
      {"application/openmetrics-text;q=nan,,;q=", "text"},
  };
  for (const auto& row : cases) {
    EXPECT_STREQ(PreferredFormat(row.accept), row.format) << row.accept;
  }
}

TEST_F(GateFixture, ADaemonThatSaysNoLineIsLeftAndAskedAgain) {
  flood.assign(std::size_t{64} << 20, 'x');
  Begin([](const Json&) { return std::string("{\"ok\":true}\n"); });
  EXPECT_LT(daemon->Sent(), std::size_t{8} << 20);
  EXPECT_THAT(Ask("/-/ready"), HasSubstr("ready"));
}

TEST_F(GateFixture, WhatAProcessIsStartedWithIsLeftOutWhereTheSettingsSaySo) {
  Begin(
      [](const Json& request) {
        return JsonText(Json{{"ok", true}, {"asked", request}}) + '\n';
      },
      Json{{"arguments", false}});
  for (const char* path :
       {"get?records=PDI", "last?records=PDX", "history?record=PDX", "alarm?id=1"}) {
    EXPECT_THAT(Ask(std::string("/api/1/") + path), HasSubstr(R"("arguments":false)")) << path;
  }
}

}  // namespace

// The protocol end to end: the built pulsebar run as an agent runs it, lines in, lines out.

#include "../support/test_support.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <gtest/gtest.h>

using namespace pulsebar::test;

namespace {

class McpProtocol : public ::testing::Test {
protected:
    QTemporaryDir home;

    RunResult serve(const QByteArray& input)
    {
        QProcessEnvironment env;
        env.insert("PULSEBAR_SYSROOT", fixture("mcp/sysroot"));
        return runPulsebar({"--mcp"}, home.path(), input, env);
    }

    // Every response line, parsed; fails the test on a line that is not one compact JSON object.
    static std::vector<QJsonObject> responses(const RunResult& run)
    {
        std::vector<QJsonObject> result;
        QList<QByteArray> lines = run.out.split('\n');
        EXPECT_TRUE(run.out.isEmpty() || run.out.endsWith('\n'));
        if (!lines.isEmpty() && lines.last().isEmpty())
            lines.removeLast();
        for (const QByteArray& line : lines) {
            QJsonParseError error{};
            const QJsonDocument document = QJsonDocument::fromJson(line, &error);
            EXPECT_EQ(error.error, QJsonParseError::NoError) << line.left(200).constData();
            EXPECT_TRUE(document.isObject());
            EXPECT_EQ(line, document.toJson(QJsonDocument::Compact)) << "not compact";
            result.push_back(document.object());
        }
        return result;
    }
};

} // namespace

TEST_F(McpProtocol, AnswersEachRequestInOrderAndIgnoresBlankLinesAndNotifications)
{
    const RunResult run = serve(
        "\n"
        "   \t  \n"
        "{\"jsonrpc\":\"2.0\",\"method\":\"ping\"}\n"
        "{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n"
        "{\"jsonrpc\":\"2.0\",\"method\":\"tools/call\",\"params\":{\"name\":\"nope\"}}\n"
        "  {\"jsonrpc\":\"2.0\",\"id\":7,\"method\":\"ping\"}\t\r\n"
        "[1,2]\n"
        "{\"jsonrpc\":\"2.0\",\"id\":\"x\",\"method\":\"Tools/list\"}\n"
        "{\"jsonrpc\":\"2.0\",\"id\":8}\n"
        "{\"jsonrpc\":\"2.0\",\"id\":9,\"method\":\"tools/call\"}\n");
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.err.isEmpty()) << run.err.constData();
    const auto r = responses(run);
    ASSERT_EQ(r.size(), 5u);

    EXPECT_EQ(r[0], QJsonDocument::fromJson(R"({"jsonrpc":"2.0","id":7,"result":{}})").object());
    EXPECT_EQ(r[1], QJsonDocument::fromJson(
                        R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Parse error"}})")
                        .object());
    EXPECT_EQ(r[2], QJsonDocument::fromJson(
                        R"({"jsonrpc":"2.0","id":"x","error":{"code":-32601,"message":"Method not found: Tools/list"}})")
                        .object());
    EXPECT_EQ(r[3]["error"]["message"].toString(), "Method not found: ");
    EXPECT_EQ(r[4]["result"].toObject(),
              QJsonDocument::fromJson(R"({"content":[{"type":"text","text":"Unknown tool: "}],"isError":true})")
                  .object());
}

TEST_F(McpProtocol, InitializeEchoesTheClientsProtocolVersionAndNamesTheServer)
{
    const RunResult run = serve(
        "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\"}\n"
        "{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"initialize\",\"params\":{\"protocolVersion\":\"2024-11-05\"}}\n"
        "{\"jsonrpc\":\"2.0\",\"id\":3,\"method\":\"initialize\",\"params\":{\"protocolVersion\":20241105}}\n");
    const auto r = responses(run);
    ASSERT_EQ(r.size(), 3u);
    const QJsonObject result = r[0]["result"].toObject();
    EXPECT_EQ(result["protocolVersion"].toString(), "2025-06-18");
    EXPECT_EQ(r[1]["result"]["protocolVersion"].toString(), "2024-11-05");
    EXPECT_EQ(r[2]["result"]["protocolVersion"].toString(), "2025-06-18");
    EXPECT_EQ(result["capabilities"].toObject(), QJsonDocument::fromJson(R"({"tools":{"listChanged":false}})").object());
    EXPECT_EQ(result["serverInfo"].toObject(),
              (QJsonObject{{"name", "pulsebar"}, {"title", "Pulsebar"}, {"version", PULSEBAR_VERSION}}));
    EXPECT_EQ(result["instructions"].toString(),
              QString::fromUtf8("Live and historical stats for this computer from Pulsebar. Start with get_overview; "
                                "use get_history to answer questions about the past (up to 30 days), and "
                                "get_top_processes to find what is using CPU, memory or disk. Process CPU "
                                "percentages follow top: 100% is one full core. Temperatures are in °C."));
}

TEST_F(McpProtocol, EchoesIdsVerbatimWhateverTheirType)
{
    const RunResult run = serve(
        "{\"id\":\"abc\",\"method\":\"ping\"}\n"
        "{\"id\":null,\"method\":\"ping\"}\n"
        "{\"id\":-12.5,\"method\":\"ping\"}\n"
        "{\"id\":9007199254740993,\"method\":\"ping\"}\n"
        "{\"id\":[1,{\"a\":true}],\"method\":\"ping\"}\n"
        "{\"id\":{\"n\":1},\"method\":\"nope\"}\n");
    const QList<QByteArray> lines = run.out.split('\n');
    ASSERT_EQ(lines.size(), 7);
    EXPECT_TRUE(lines[0].contains("\"id\":\"abc\""));
    EXPECT_TRUE(lines[1].contains("\"id\":null"));
    EXPECT_TRUE(lines[2].contains("\"id\":-12.5"));
    EXPECT_TRUE(lines[3].contains("\"id\":9007199254740993")) << lines[3].constData();
    EXPECT_TRUE(lines[4].contains("\"id\":[1,{\"a\":true}]"));
    EXPECT_TRUE(lines[5].contains("\"id\":{\"n\":1}"));
}

TEST_F(McpProtocol, MalformedInputGetsAParseErrorOrSilenceAndNeverEndsTheServer)
{
    QByteArray input;
    input += "{\"id\":1,\"method\":\"ping\",\"x\":\"\xff\xfe\xc3\"}\n";     // not UTF-8: read with replacements
    input += QByteArray("{\"id\":2,\0\"method\":\"ping\"}\n", 27);          // a NUL byte
    input += QByteArray(100000, '[') + "\n";                               // nesting far too deep
    input += "{\"id\":3,\"method\":\"ping\",\"pad\":\"" + QByteArray(10 << 20, 'a') + "\"}\n"; // a 10 MB line
    input += "{\"id\":4,\"method\":\n";                                   // cut short
    input += "42\n\"text\"\nnull\n{}\n";                                  // valid JSON, not a request
    input += "{\"id\":5,\"method\":\"tools/call\",\"params\":[1]}\n";     // params not an object
    input += "{\"id\":6,\"method\":\"ping\"}";                            // no newline before the end
    const RunResult run = serve(input);
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.err.isEmpty());
    const auto r = responses(run);
    ASSERT_EQ(r.size(), 10u);
    auto isParseError = [](const QJsonObject& o) {
        return o["id"].isNull() && o["error"]["code"].toInt() == -32700;
    };
    EXPECT_EQ(r[0]["id"].toInt(), 1);
    EXPECT_TRUE(r[0]["result"].isObject());
    EXPECT_TRUE(isParseError(r[1]));
    EXPECT_TRUE(isParseError(r[2]));
    EXPECT_EQ(r[3]["id"].toInt(), 3);
    EXPECT_TRUE(isParseError(r[4]));
    for (int i = 5; i <= 7; ++i)
        EXPECT_TRUE(isParseError(r[i])) << i;
    // {} is an object without an id: a notification, so silence; then the two requests.
    EXPECT_EQ(r[8]["result"]["content"][0]["text"].toString(), "Unknown tool: ");
    EXPECT_EQ(r[9]["id"].toInt(), 6);
}

TEST_F(McpProtocol, ThreeRequestsThenEndOfInputGiveThreeAnswersAndStatusZero)
{
    const RunResult run = serve("{\"id\":1,\"method\":\"ping\"}\n"
                                "{\"id\":2,\"method\":\"tools/list\"}\n"
                                "{\"id\":3,\"method\":\"tools/call\",\"params\":{\"name\":\"get_overview\"}}\n");
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.err.isEmpty());
    const auto r = responses(run);
    ASSERT_EQ(r.size(), 3u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(r[i]["id"].toInt(), i + 1);
}

TEST_F(McpProtocol, TheCatalogueListsTheEightToolsInOrderWithTheirSchemas)
{
    const auto r = responses(serve("{\"id\":1,\"method\":\"tools/list\"}\n"));
    ASSERT_EQ(r.size(), 1u);
    const QJsonArray tools = r[0]["result"]["tools"].toArray();
    QStringList names;
    for (const QJsonValue& tool : tools) {
        names << tool["name"].toString();
        EXPECT_FALSE(tool["title"].toString().isEmpty());
        EXPECT_FALSE(tool["description"].toString().contains("Mac"));
        EXPECT_EQ(tool["annotations"].toObject(), (QJsonObject{{"readOnlyHint", true}, {"openWorldHint", false}}));
        EXPECT_EQ(tool["inputSchema"]["type"].toString(), "object");
        EXPECT_EQ(tool["inputSchema"]["additionalProperties"], QJsonValue(false));
        EXPECT_FALSE(tool["inputSchema"].toObject().contains("required"));
    }
    EXPECT_EQ(names, (QStringList{"get_overview", "get_top_processes", "get_history", "get_sensors", "get_battery",
                                  "get_network", "get_disks", "get_connected_devices"}));
    EXPECT_EQ(tools[0]["inputSchema"]["properties"].toObject(), QJsonObject());
    EXPECT_EQ(tools[1]["inputSchema"]["properties"]["limit"].toObject(),
              QJsonDocument::fromJson(
                  R"({"type":"integer","minimum":1,"maximum":30,"description":"How many processes. Default: 10."})")
                  .object());
    EXPECT_EQ(tools[1]["inputSchema"]["properties"]["sort_by"]["enum"].toArray(), (QJsonArray{"cpu", "memory", "disk"}));
    const QJsonObject history = tools[2]["inputSchema"]["properties"].toObject();
    EXPECT_EQ(history["metric"]["enum"].toArray(),
              (QJsonArray{"cpu_user", "cpu_system", "gpu", "mem_pressure", "mem_used", "disk_read", "disk_write",
                          "net_down", "net_up", "temperature", "fan", "battery", "power"}));
    EXPECT_EQ(history["range"]["enum"].toArray(), (QJsonArray{"1h", "24h", "7d", "30d"}));
    EXPECT_EQ(history["points"]["minimum"].toInt(), 0);
    EXPECT_EQ(history["points"]["maximum"].toInt(), 200);
    EXPECT_EQ(tools[3]["inputSchema"]["properties"]["all_sensors"]["type"].toString(), "boolean");
    EXPECT_EQ(tools[2]["title"].toString(), "History");
    EXPECT_EQ(tools[7]["title"].toString(), "Connected devices");
}

TEST_F(McpProtocol, ToolResultsArePrettySortedTextAndBadArgumentsComeBackAsToolErrors)
{
    const RunResult run = serve(
        "{\"id\":1,\"method\":\"tools/call\",\"params\":{\"name\":\"get_overview\",\"arguments\":\"junk\"}}\n"
        "{\"id\":2,\"method\":\"tools/call\",\"params\":{\"name\":\"get_top_processes\",\"arguments\":{\"sort_by\":\"gpu\"}}}\n"
        "{\"id\":3,\"method\":\"tools/call\",\"params\":{\"name\":\"get_history\",\"arguments\":{\"metric\":\"CPU\"}}}\n"
        "{\"id\":4,\"method\":\"tools/call\",\"params\":{\"name\":\"get_history\",\"arguments\":{\"metric\":\"fan\",\"range\":\"2h\"}}}\n"
        "{\"id\":5,\"method\":\"tools/call\",\"params\":{\"name\":\"get_history\",\"arguments\":{\"metric\":\"fan\"}}}\n"
        "{\"id\":6,\"method\":\"tools/call\",\"params\":{\"name\":\"GET_OVERVIEW\"}}\n");
    const auto r = responses(run);
    ASSERT_EQ(r.size(), 6u);
    auto text = [&](int i) { return r[i]["result"]["content"][0]["text"].toString(); };
    auto isError = [&](int i) { return r[i]["result"]["isError"].toBool(); };

    EXPECT_FALSE(isError(0));
    const QString overview = text(0);
    EXPECT_TRUE(overview.startsWith("{\n")) << qPrintable(overview);
    EXPECT_FALSE(overview.endsWith('\n'));
    const QJsonObject object = QJsonDocument::fromJson(overview.toUtf8()).object();
    EXPECT_EQ(QJsonDocument(object).toJson(QJsonDocument::Indented).trimmed(), overview.toUtf8()); // sorted keys
    EXPECT_EQ(object["computer"]["model"].toString(), "Fixture Book 14");
    EXPECT_EQ(object["computer"]["os"].toString(), "Debian GNU/Linux 12 (bookworm) (6.1.0-fixture-amd64)");
    EXPECT_EQ(object["thermal"].toString(), "fair");
    EXPECT_FALSE(overview.contains("\\/"));

    EXPECT_TRUE(isError(1));
    EXPECT_EQ(text(1), "sort_by must be cpu, memory or disk.");
    EXPECT_TRUE(isError(2));
    EXPECT_EQ(text(2), "metric must be one of: cpu_user, cpu_system, gpu, mem_pressure, mem_used, disk_read, "
                       "disk_write, net_down, net_up, temperature, fan, battery, power");
    EXPECT_EQ(text(3), "range must be 1h, 24h, 7d or 30d.");
    // No menu-bar app has ever recorded in this fresh home.
    EXPECT_TRUE(isError(4));
    EXPECT_EQ(text(4), "No history yet. Pulsebar records history while the menu bar app is running.");
    EXPECT_EQ(text(5), "Unknown tool: GET_OVERVIEW");
}

TEST_F(McpProtocol, AnswersEachLineAsItArrivesWithoutADisplay)
{
    // An agent waits for each answer before it writes the next request: nothing may sit in a buffer.
    QProcess server;
    QProcessEnvironment env = isolatedEnvironment(home.path());
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(name);
    server.setProcessEnvironment(env);
    server.start(binaryPath(), {"--mcp"});
    ASSERT_TRUE(server.waitForStarted());
    for (int id = 1; id <= 3; ++id) {
        server.write(QByteArray("{\"jsonrpc\":\"2.0\",\"id\":") + QByteArray::number(id) + ",\"method\":\"ping\"}\n");
        ASSERT_TRUE(waitUntil([&] { return server.canReadLine() || server.state() == QProcess::NotRunning; }, 10000));
        EXPECT_EQ(server.readLine(), QByteArray("{\"id\":") + QByteArray::number(id) + ",\"jsonrpc\":\"2.0\",\"result\":{}}\n");
    }
    server.closeWriteChannel();
    ASSERT_TRUE(server.waitForFinished(10000));
    EXPECT_EQ(server.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(server.exitCode(), 0);
    EXPECT_EQ(server.readAllStandardError(), QByteArray());
}

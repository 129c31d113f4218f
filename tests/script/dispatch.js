// Calls the provider through late binding. The exit code is 0 if every call has the expected result.
var INVALID_ARGUMENT = 0x80070057 | 0, NOT_FOUND = 0x80070490 | 0, UNKNOWN_METHOD = 0x800A01B6 | 0;
var failures = 0;

// Expects the call to throw an error with this number, or none if it is 0.
function expect(what, number, call) {
    var found = numberOf(call);
    WScript.Echo((found === number ? "ok      " : "FAILED  ") + what + (found === number ? "" : ": " + found));
    failures += found === number ? 0 : 1;
}

function numberOf(call) {
    try {
        call();
    } catch (error) {
        return error.number;
    }
    return 0;
}

function configuration(text) {
    var document = new ActiveXObject("Msxml2.DOMDocument");
    document.loadXML(text);
    return document.documentElement;
}

var name = "eventlog|eventlog_appcrash";
var element = configuration("<metric><channel>Application</channel><query>*</query></metric>");
// A null object. The literal null would be passed as VT_NULL, not as an object.
var nothing = element.selectSingleNode("missing");
var provider = new ActiveXObject("OrvelAgent.EventLogProvider");

expect("subscribes with a DOM element", 0, function () { provider.SubscribeMetric(name, element); });
expect("subscribes again", 0, function () { provider.SubscribeMetric(name, element); });
expect("accepts an unknown metric", 0, function () { provider.SubscribeMetric("other", element); });
expect("queries without a sink", 0, function () { provider.QueryMetric(name, 0, nothing); });
expect("queries an unknown metric", 0, function () { provider.QueryMetric("other", 7, nothing); });
expect("calls a reserved slot", 0, function () { provider.Reserved10(); });
expect("refuses a null configuration", INVALID_ARGUMENT, function () { provider.SubscribeMetric("x", nothing); });
expect("refuses an object that is not a DOM element", INVALID_ARGUMENT, function () { provider.SubscribeMetric("x", provider); });
expect("reports a missing property", NOT_FOUND, function () {
    provider.SubscribeMetric("EventLog|EventLog_AppCrash", configuration("<metric><channel>A</channel></metric>"));
});
expect("refuses a null host", INVALID_ARGUMENT, function () { provider.SetHost(nothing, nothing); });
expect("has no other method", UNKNOWN_METHOD, function () { provider.Subscribe(name); });
expect("unsubscribes", 0, function () { provider.UnsubscribeMetric(name); });
expect("unsubscribes all", 0, function () { provider.UnsubscribeAll(); });
WScript.Quit(failures === 0 ? 0 : 1);

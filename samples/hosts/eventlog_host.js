// A host as a script, for you to copy. A script can create the provider, subscribe and unsubscribe by name, and so
// check whether a configuration is accepted. It cannot collect: the provider calls IMetricSink through its vtable,
// which script objects do not have. The console therefore collects, and the script reads its JSON lines.
//
//   cscript //nologo eventlog_host.js CONSOLE.exe CONFIG.xml [OPTION...]      OPTION: for eventlog_console run

var shell = new ActiveXObject("WScript.Shell");
var files = new ActiveXObject("Scripting.FileSystemObject");

// Calls the provider by name. A failed call throws an exception whose number is the HRESULT.
function checkConfiguration(path) {
    var document = new ActiveXObject("Msxml2.DOMDocument.6.0");
    document.async = false;
    if (!document.load(path)) {
        throw new Error(path + ": " + document.parseError.reason);
    }
    var provider = new ActiveXObject("OrvelAgent.EventLogProvider");
    var metrics = document.selectNodes("/metrics/metric");
    for (var i = 0; i < metrics.length; ++i) {
        var name = metrics.item(i).getAttribute("name");
        try {
            provider.SubscribeMetric(name, metrics.item(i));
        } catch (error) {
            throw new Error(name + " is refused with 0x" + (error.number + 0x100000000).toString(16));
        }
        WScript.Echo(name + " is accepted");
    }
    provider.UnsubscribeAll();
}

// Handles one value; this sample only prints it.
function takeValue(value) {
    WScript.Echo(value.key + " [" + value.instance + "] = " + value.value);
}

// Returns the text of a file that another program may be writing, read in the system's code page. For text beyond
// ASCII, read the console's UTF-8 with ADODB.Stream and the charset "utf-8".
function read(path) {
    if (!files.FileExists(path) || files.GetFile(path).Size === 0) {
        return "";
    }
    var file = files.OpenTextFile(path, 1);
    var text = file.ReadAll();
    file.Close();
    return text;
}

function pause() {
    try {
        WScript.Sleep(1000);
    } catch (error) { // this script host has no Sleep
        shell.Run("ping -n 2 127.0.0.1", 0, true);
    }
}

// Runs the console until it ends, handles each line as soon as it is complete, and returns the console's messages.
function collect(arguments) {
    var output = files.BuildPath(files.GetSpecialFolder(2), files.GetTempName());
    var log = output + ".log";
    // cmd strips the first and the last quote of its command line.
    var process = shell.Exec('cmd /c "' + arguments + ' >"' + output + '" 2>"' + log + '""');
    for (var taken = 0, isRunning = true; isRunning;) {
        isRunning = process.Status === 0;
        var lines = read(output).split("\n");
        for (; taken < lines.length - 1; ++taken) {
            takeValue(eval("(" + lines[taken] + ")")); // JSON that the console wrote
        }
        if (isRunning) {
            pause();
        }
    }
    var messages = read(log);
    files.DeleteFile(output);
    files.DeleteFile(log);
    return messages;
}

if (WScript.Arguments.length < 2) {
    WScript.Echo("usage: eventlog_host.js CONSOLE.exe CONFIG.xml [OPTION...]");
    WScript.Quit(2);
}
try {
    checkConfiguration(WScript.Arguments(1));
    var command = '"' + WScript.Arguments(0) + '" run --format jsonl --config "' + WScript.Arguments(1) + '"';
    for (var i = 2; i < WScript.Arguments.length; ++i) {
        command += ' "' + WScript.Arguments(i) + '"';
    }
    var messages = collect(command);
    if (messages !== "") {
        WScript.Echo(messages);
    }
    WScript.Quit(messages.indexOf("error: ") < 0 ? 0 : 1);
} catch (error) {
    WScript.Echo("failed: " + error.message);
    WScript.Quit(1);
}

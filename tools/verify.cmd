@echo off
rem Checks the whole way from a written event to a metric on this desktop, for the user who runs it, and says at each
rem step what it found. No administrator is needed: the provider is registered for the user alone, and in the end
rem removed again. Exit code 0: all is well, 1: a step failed.
setlocal
set "here=%~dp0"
set "work=%TEMP%\OrvelVerify"
set "class={DAF69464-F4E2-40C0-BCC3-A30E819975F0}"
set "marker=Orvel verification %RANDOM%-%RANDOM%"
set "powershell=%SystemRoot%\System32\WindowsPowerShell\v1.0\powershell.exe"
set "console="
set failed=0
if exist "%work%" rmdir /s /q "%work%"
mkdir "%work%"
if not exist "%work%" (
    echo The folder %work% cannot be made.
    exit /b 1
)

echo Step 1: the package's files
for %%f in (Orvel_eventlog.dll OrvelAgent.tlb EventLogProviderLib.tlb eventlog_console.exe) do (
    if exist "%here%%%f" (echo   found %%f) else (echo   MISSING %%f& set failed=1)
)
if %failed%==1 goto end

echo Step 2: registration for this user
"%SystemRoot%\System32\regsvr32.exe" /s /n /i:user "%here%Orvel_eventlog.dll"
if errorlevel 1 (
    echo   FAILED: regsvr32 gave exit code %errorlevel%
    set failed=1
    goto end
)
echo   regsvr32 is content
rem A 32-bit class stands in a branch of its own on 64-bit Windows and needs 32-bit programs.
reg query "HKCU\Software\Classes\WOW6432Node\CLSID\%class%" >nul 2>&1
if not errorlevel 1 set "powershell=%SystemRoot%\SysWOW64\WindowsPowerShell\v1.0\powershell.exe"
reg query "HKCU\Software\Classes\OrvelAgent.EventLogProvider\CLSID" 2>nul | findstr /i /c:"%class%" >nul
if errorlevel 1 (
    echo   FAILED: the ProgID is not among the user's classes
    set failed=1
    goto unregister
)
echo   the ProgID leads to the class

echo Step 3: creation by ProgID and a call by name
"%powershell%" -NoProfile -Command "$ErrorActionPreference = 'Stop'; $provider = New-Object -ComObject OrvelAgent.EventLogProvider; $provider.UnsubscribeAll()" >"%work%\create.txt" 2>&1
if errorlevel 1 (
    echo   FAILED:
    type "%work%\create.txt"
    set failed=1
    goto unregister
)
echo   the provider was created and answered

echo Step 4: from a written event to a metric
>"%work%\config.xml" echo ^<metrics^>^<metric name="eventlog|eventlog_appcrash"^>^<channel^>Application^</channel^>
>>"%work%\config.xml" echo ^<query^>*[System[Provider[@Name='Application Error'] and (EventID=1000)]]^</query^>^</metric^>^</metrics^>
rem The console's number goes through a file: a pipe would be inherited by the console and stay open.
"%powershell%" -NoProfile -Command "$ErrorActionPreference = 'Stop'; $console = Start-Process -PassThru -NoNewWindow -WorkingDirectory $env:work -FilePath ($env:here + 'eventlog_console.exe') -ArgumentList 'run --config config.xml --interval 1 --format jsonl --log info' -RedirectStandardOutput ($env:work + '\metrics.txt') -RedirectStandardError ($env:work + '\log.txt'); [IO.File]::WriteAllText($env:work + '\console.txt', $console.Id)" >"%work%\start.txt" 2>&1
if exist "%work%\console.txt" set /p console=<"%work%\console.txt"
if not defined console (
    echo   FAILED: the console did not start:
    type "%work%\start.txt"
    set failed=1
    goto unregister
)
echo   the console listens as process %console%
ping -n 6 127.0.0.1 >nul
rem The publisher's message takes many values; the first, the faulting application's name, carries the mark.
"%powershell%" -NoProfile -Command "$ErrorActionPreference = 'Stop'; $kind = New-Object Diagnostics.EventInstance 1000, 100, 'Error'; [Diagnostics.EventLog]::WriteEvent('Application Error', $kind, [object[]](@($env:marker) + (2..20)))" >"%work%\write.txt" 2>&1
if errorlevel 1 (
    echo   FAILED: the event could not be written:
    type "%work%\write.txt"
    set failed=1
    goto stop
)
echo   an event with the text "%marker%" was written
set tries=0
:wait
findstr /c:"%marker%" "%work%\metrics.txt" >nul 2>&1
if not errorlevel 1 goto arrived
set /a tries+=1
if %tries% lss 30 (
    ping -n 2 127.0.0.1 >nul
    goto wait
)
echo   FAILED: no metric with that text came within 30 seconds; the console's log:
type "%work%\log.txt"
set failed=1
goto stop
:arrived
echo   the metric came:
findstr /c:"%marker%" "%work%\metrics.txt"
:stop
taskkill /f /pid %console% >nul 2>&1

:unregister
echo Step 5: removal
"%SystemRoot%\System32\regsvr32.exe" /s /u /n /i:user "%here%Orvel_eventlog.dll"
if errorlevel 1 (
    echo   FAILED: regsvr32 gave exit code %errorlevel%
    set failed=1
)
set left=0
for %%k in ("OrvelAgent.EventLogProvider" "OrvelAgent.EventLogProvider.1" "CLSID\%class%" "WOW6432Node\CLSID\%class%" "AppID\Orvel_eventlog.dll" "TypeLib\{BA21C1A6-3183-4E99-A464-6DF4178B7249}") do (
    reg query "HKCU\Software\Classes\%%~k" >nul 2>&1
    if not errorlevel 1 (
        echo   FAILED: HKCU\Software\Classes\%%~k is still there
        set left=1
    )
)
if %left%==1 (set failed=1) else (echo   nothing is left among the user's classes)

:end
if %failed%==0 (echo All is well.) else (echo Something FAILED; details are in "%work%".)
exit /b %failed%

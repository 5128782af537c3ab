#include "Mistakes.h"

#include <ostream>

namespace {

using I = Installation;

// Where the start succeeds all the same, it does so as soon as the children answer; where it fails, it need not try for
// long, and the daemon goes on to log why.
const std::vector<std::string> kStart{"-start", "-testReadyTries=60", "-testReadyInterval=1"};
const std::vector<std::string> kStartInVain{"-start", "-testReadyTries=3", "-testReadyInterval=1"};
const std::vector<std::string> kStop{"-stop", "-testDeadTries=20", "-testDeadInterval=1"};

// In the bootstrap document, the words from for the words to.
std::function<void(I&)> inBootstrap(const std::string& from, const std::string& to) {
    return [from, to](I& at) { at.replace(I::bootstrap, from, to); };
}
std::function<void(I&)> inStartup(const std::string& from, const std::string& to) {
    return [from, to](I& at) { at.replace(I::startup, from, to); };
}
std::function<void(I&)> inSettings(const std::string& from, const std::string& to) {
    return [from, to](I& at) { at.replace(I::settings, from, to); };
}
void nothing(I& /*at*/) {}

std::vector<Mistake> ofTheDocuments() {
    return {
        {"TheBootstrapDocumentIsNoXml",
         "bootstrap document: no XML, `</spwan>`",
         inBootstrap("</spawn>", "</spwan>"),
         kStart,
         1,
         {{Place::Log,
           "Error parsing bootstrap.xml file = \"/bin/bootstrap_linuxi38632.xml\", error string = \"line 10, "
           "column 9: expected end of tag 'spawn'\""},
          {Place::Check, "/configuration/bootstrap_linuxi38632.xml:10: parser error : …spwan"}},
         "/bin/bootstrap_linuxi38632.xml:10:9: error: expected end of tag 'spawn'",
         {"bootstrap_linuxi38632.xml"}},
        {"TheStartupDocumentIsNoXml",
         "startup document: no XML, `<ZOR`",
         inStartup("<ZOR>", "<ZOR"),
         kStart,
         0,
         {{Place::Terminal,
           "cannot read startup configuration \"/configuration/startup.xml\": line 5, column 5: unterminated "
           "start tag 'ZOR'"},
          {Place::Check, "/configuration/startup.xml:5: parser error : …"}},
         "/configuration/startup.xml:5:5: error: unterminated start tag 'ZOR'",
         {"startup.xml"}},
        {"TheLoggingDocumentIsNoXml",
         "logging document: no XML, `<run`",
         [](I& at) { at.replace(I::logging, "<run>", "<run"); },
         kStart,
         0,
         {{Place::DefaultLog,
           "Error parsing logging config file = /bin/zorlogconfig.xml, error string = line 4, column 5: "
           "unterminated start tag 'run'"},
          {Place::Check, "/configuration/zorlogconfig.xml:4: parser error : …"}},
         "/bin/zorlogconfig.xml:4:5: error: unterminated start tag 'run'",
         {"zorlogconfig.xml"}},
        {"TheBootstrapDocumentIsMissing",
         "bootstrap document: not there",
         [](I& at) { at.remove(I::bootstrap); },
         kStart,
         1,
         {{Place::Log, "cannot open bootstrap config file \"/bin/bootstrap_linuxi38632.xml\"."}},
         "/bin/bootstrap_linuxi38632.xml: error: cannot be read: No such file or directory",
         {"bootstrap_linuxi38632.xml"}},
        {"TheStartupDocumentIsMissing",
         "startup document: not there",
         [](I& at) { at.remove(I::startup); },
         kStart,
         0,
         {{Place::Log, "failed to find ZOR element in bootstrap config (via CFGAPI)"},
          {Place::Log, "A value for JAVA_HOME must be provided…"}},
         "/configuration/startup.xml: error: cannot be read: No such file or directory",
         {"ZOR element", "startup.xml"}},
        {"TheLoggingDocumentIsMissing",
         "logging document: not there",
         [](I& at) { at.remove(I::logging); },
         kStart,
         0,
         {{Place::DefaultLog, "cannot open logging config file \"/bin/zorlogconfig.xml\"."}},
         "/bin/zorlogconfig.xml: error: cannot be read: No such file or directory",
         {"zorlogconfig.xml"}},
        {"AStopHasNoType",
         "`tpye=` for `type=` of a `stop`",
         inBootstrap("<stop type", "<stop tpye"),
         kStart,
         0,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:12: element stop: … The attribute 'tpye' is not "
           "allowed."},
          {Place::Log, "exception while processing configuration: \"unexpected type for stop command\""}},
         "/bin/bootstrap_linuxi38632.xml:12:11: error: unknown attribute \"tpye\" of <stop>: did you mean "
         "\"type\"? [child dispatcher]",
         {"stop"}},
        {"AStopIsOfAnUnknownType",
         "`type=\"socketsend\"` of a `stop`",
         inBootstrap("type=\"socketSend\"", "type=\"socketsend\""),
         kStart,
         0,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:12: element stop: … The value 'socketsend' is not an "
           "element of the set {'spawn', 'socketSend', 'signal'}."},
          {Place::Log, "unexpected type for stop command \"socketsend\""}},
         "/bin/bootstrap_linuxi38632.xml:12:11: error: attribute \"type\" of <stop>: value 'socketsend' not "
         "in enumeration: did you mean \"socketSend\"? [child dispatcher]",
         {"stop"}},
        {"APingHasNoUri",
         "`URL=` for `URI=` of a ping",
         inBootstrap("URI=\"${dispatcherURI}\" commandString=\"PING\"",
                     "URL=\"${dispatcherURI}\" commandString=\"PING\""),
         kStart,
         0,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:17: element socketSend: … The attribute 'URL' is not "
           "allowed."},
          {Place::Log, "exception while processing configuration: \"ping action must have URI\""}},
         "/bin/bootstrap_linuxi38632.xml:16:19: error: unknown attribute \"URL\" of <socketSend>: did you "
         "mean \"URI\"? [child dispatcher]",
         {"socketSend"}},
        {"APathIsSpelledWithACapital",
         "`<Path>` for `<path>`",
         [](I& at) {
             at.replace(I::bootstrap, "<path>${bin_path}/sample", "<Path>${bin_path}/sample");
             at.replace(I::bootstrap, "dispatcher</path>", "dispatcher</Path>");
         },
         kStart,
         0,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:7: element Path: … This element is not expected. …"},
          {Place::Log,
           "exception while processing configuration: \"ZORSpawnAction required attribute \"path\" is "
           "missing\""}},
         "/bin/bootstrap_linuxi38632.xml:7:9: error: unknown element <Path>: did you mean \"path\"? [child "
         "dispatcher]",
         {"Path"}},
        {"APingIsMisspelt",
         "`<pings>` for `<ping>`",
         [](I& at) {
             at.replace(I::bootstrap, "<ping>", "<pings>");
             at.replace(I::bootstrap, "</ping>", "</pings>");
         },
         kStart,
         0,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:15: element pings: … This element is not expected."},
          {Place::Log, "no ping element in config."}},
         "/bin/bootstrap_linuxi38632.xml:15:5: error: unknown element <pings>: did you mean \"ping\"? [child "
         "dispatcher]",
         {"pings"}},
        {"AProcessIsMisspelt",
         "`<proces>` for each `<process>`",
         [](I& at) {
             for (int child = 0; child < 2; ++child) {
                 at.replace(I::bootstrap, "<process name", "<proces name");
                 at.replace(I::bootstrap, "</process>", "</proces>");
             }
         },
         kStart,
         1,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:4: element proces: … This element is not expected. …"},
          {Place::Log, "no process elements."}},
         "/bin/bootstrap_linuxi38632.xml:4:3: error: unknown element <proces>: did you mean \"process\"?",
         {"element proces"}},
        {"APollIntervalIsSpelledWithACapital",
         "`pollIntervalSec=` for `pollIntervalsec=`",
         inBootstrap("pollIntervalsec", "pollIntervalSec"),
         kStart,
         0,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:3: element processManager: … The attribute "
           "'pollIntervalSec' is not allowed."}},
         "/bin/bootstrap_linuxi38632.xml:3:19: error: unknown attribute \"pollIntervalSec\" of "
         "<processManager>: did you mean \"pollIntervalsec\"?",
         {"processManager"}},
        {"APollIntervalIsNought",
         "`pollIntervalsec=\"0\"`",
         inBootstrap("pollIntervalsec=\"1\"", "pollIntervalsec=\"0\""),
         kStart,
         1,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:3: element processManager: … The value '0' is less than "
           "the minimum value allowed ('1')."},
          {Place::Log, "poll interval must not be 0."}},
         "/bin/bootstrap_linuxi38632.xml:3:19: error: pollIntervalsec: poll interval must not be 0.",
         {"processManager"}},
        {"APollIntervalHasAUnit",
         "`pollIntervalsec=\"10s\"`",
         inBootstrap("pollIntervalsec=\"1\"", "pollIntervalsec=\"10s\""),
         kStart,
         0,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:3: element processManager: … '10s' is not a valid value "
           "of the atomic type 'pollSeconds'."}},
         "/bin/bootstrap_linuxi38632.xml:3:19: error: pollIntervalsec=\"10s\" is 10 to the service",
         {"processManager"}},
        {"ASignalIsNamed",
         "`signal=\"SIGTERM\"`, in place of 15",
         inBootstrap("signal signal=\"15\"", "signal signal=\"SIGTERM\""),
         kStart,
         0,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:28: element signal: … 'SIGTERM' is not a valid value of "
           "the union type 'signalNumber'."}},
         "/bin/bootstrap_linuxi38632.xml:28:15: error: signal \"SIGTERM\" is 0 to the service, which stops "
         "nobody: it wants the number [child helper]",
         {"element signal"}},
        {"APropertyIsMisspelt",
         "`URI=\"${dispacherURI}\"` of a ping",
         inBootstrap("${dispatcherURI}\" commandString=\"PING\"", "${dispacherURI}\" commandString=\"PING\""),
         kStartInVain,
         1,
         {{Place::Log, "failed to connect, SEK error: bad address \"${dispacherURI}\": no scheme"}},
         "/bin/bootstrap_linuxi38632.xml:16:19: error: nobody defines ${dispacherURI}: did you mean "
         "\"dispatcherURI\"? [child dispatcher]",
         {"dispacherURI"}},
        {"AnArgumentHasAnUnknownProperty",
         "`--listen=${dispacherURI}`, an argument of a child",
         inBootstrap("--listen=${dispatcherURI}", "--listen=${dispacherURI}"),
         kStartInVain,
         1,
         {{Place::Log, "ping loop: process \"dispatcher\" is not active, so restarting it."},
          {Place::Question, "adding arg \"--listen=${dispacherURI}\""}},
         "/bin/bootstrap_linuxi38632.xml:8:9: warning: nobody defines ${dispacherURI}: did you mean "
         "\"dispatcherURI\"? [child dispatcher]",
         {"dispacherURI"}},
        {"AMarkerIsWrong",
         "`responseOK=\"Ready\"`, where the child says READY",
         inBootstrap("responseOK=\"READY\"", "responseOK=\"Ready\""),
         kStartInVain,
         1,
         {{Place::Log, "did not detect success string in response."},
          {Place::Question, "responseOK is \"Ready\""}},
         "",
         {"responseOK"},
         false},
        {"AMarkerIsLongerThanWhatIsSaid",
         "`responseOK=\"RUNNING\"`, where the child says READY, which is shorter",
         inBootstrap("responseOK=\"READY\"", "responseOK=\"RUNNING\""),
         kStart,
         0,
         {{Place::Question, "responseOK is \"RUNNING\""}},
         "",
         {"responseOK"},
         false},
        {"AMarkerIsLongerThanTheAnswer",
         "`responseSize=\"4\"`, less than `responseOK` is long",
         inBootstrap("responseSize=\"64\"", "responseSize=\"4\""),
         kStart,
         0,
         {{Place::Log, "configured OK response is longer that the response length."},
          {Place::Question, "responseOK is \"\""}},
         "/bin/bootstrap_linuxi38632.xml:17:19: error: responseOK: configured OK response is longer that the "
         "response length. [child dispatcher]",
         {"responseOK"}},
        {"ADependencyIsNotInstalled",
         "`dependency=\"dispacher\"`, which `startup.xml` does not list",
         inBootstrap("dependency=\"dispatcher\"", "dependency=\"dispacher\""),
         kStart,
         0,
         {{Place::Question, "preparing process named dispatcher", "processing ping command of type"}},
         "/bin/bootstrap_linuxi38632.xml:17:85: error: the service never pings this child: the startup "
         "configuration has no component \"dispacher\" with a version: did you mean \"dispatcher\"? [child "
         "dispatcher]",
         {"dispatcher", "dispacher"}},
        {"TheDaemonIsNotToldToBeOne",
         "no `runAsDaemon` in `daemonSpawn`",
         inBootstrap("<param>runAsDaemon</param>", ""),
         kStartInVain,
         1,
         {{Place::Terminal, "velbootstrapservice - manage the Velmora Bootstrap Service daemon."},
          {Place::Question, "adding arg \"-java_home=/opt/java\"", "adding arg \"runAsDaemon\""}},
         "/bin/bootstrap_linuxi38632.xml:31:3: error: without <param>runAsDaemon</param> \"-start\" starts "
         "no daemon: the program prints its usage and ends",
         {"velbootstrapservice", "runAsDaemon"}},
        {"ThereIsNoDaemonSpawn",
         "`<daemonspawn>` for `<daemonSpawn>`",
         [](I& at) {
             at.replace(I::bootstrap, "<daemonSpawn>", "<daemonspawn>");
             at.replace(I::bootstrap, "</daemonSpawn>", "</daemonspawn>");
         },
         kStart,
         1,
         {{Place::Check,
           "/configuration/bootstrap_linuxi38632.xml:31: element daemonspawn: … This element is not "
           "expected. …"},
          {Place::Log, "required element \"daemonSpawn\" is missing."}},
         "/bin/bootstrap_linuxi38632.xml:31:3: error: unknown element <daemonspawn>: did you mean "
         "\"daemonSpawn\"?",
         {"daemonSpawn"}},
        {"AParameterIsOfAnotherType",
         "`xsi:type=\"xsd:unsignedInt\"` of `dispatcherPingTimeout`",
         inStartup("xsd:unsignedShort\">60", "xsd:unsignedInt\">60"),
         kStart,
         0,
         {{Place::Log,
           "Failed to find value of type \"xsd:unsignedShort\" for parameter named "
           "\"dispatcherPingTimeout\"."}},
         "/configuration/startup.xml:7:18: warning: Failed to find value of type \"xsd:unsignedShort\" for "
         "parameter named \"dispatcherPingTimeout\".",
         {"dispatcherPingTimeout"}},
        {"AParameterIsMisspelt",
         "`dispatcherPingTimeOut` for `dispatcherPingTimeout`",
         inStartup("dispatcherPingTimeout", "dispatcherPingTimeOut"),
         kStart,
         0,
         {{Place::Check,
           "/configuration/startup.xml:6: element parameter: … The value 'dispatcherPingTimeOut' is not an "
           "element of the set …"},
          {Place::Log, "Failed to find parameter \"dispatcherPingTimeout\" in startup config ZOR element."}},
         "/configuration/startup.xml:6:20: error: attribute \"name\" of <vrx:parameter>: value "
         "'dispatcherPingTimeOut' not in enumeration: did you mean \"dispatcherPingTimeout\"?",
         {"dispatcherPingTime"}},
        {"TheDispatcherHasNoPort",
         "`internalDispatcher` without a port, and `-isrunning`",
         [](I& at) {
             const std::string text = at.service().read(I::startup);
             const std::size_t begin = text.find("https://localhost:") + 17;
             at.replace(I::startup, text.substr(begin, text.find('/', begin) - begin), "");
         },
         {"-isrunning"},
         1,
         {{Place::Check,
           "/configuration/startup.xml:20: element internalDispatcher: … The value "
           "'https://localhost/dispatch' is not accepted by the pattern …"}},
         "/configuration/startup.xml:20:3: error: <internalDispatcher>: value 'https://localhost/dispatch' "
         "does not match regular expression facet …",
         {"internalDispatcher"}},
        {"TheSchemeIsMisspelt",
         "`htps://` for `https://` in `internalDispatcher`",
         inStartup("https://", "htps://"),
         kStartInVain,
         1,
         {{Place::Check,
           "/configuration/startup.xml:20: element internalDispatcher: … The value "
           "'htps://localhost:9300/dispatch' is not accepted by the pattern …"},
          {Place::Log,
           "failed to connect, SEK error: bad address \"htps://localhost:9300/dispatch\": unknown scheme"}},
         "/bin/bootstrap_linuxi38632.xml:16:19: error: bad address \"htps://localhost:9300/dispatch\": "
         "unknown scheme [child dispatcher]",
         {"internalDispatcher"}},
        {"ThePingIsPlain",
         "`URI=\"tcp://…\"` of a ping where the child speaks TLS",
         inBootstrap("URI=\"${dispatcherURI}\" commandString=\"PING\"",
                     "URI=\"tcp://localhost:${dispatcherPort}\" commandString=\"PING\""),
         kStartInVain,
         1,
         {{Place::Log, "no response,  SEK_Poll timed out."},
          {Place::Question, "URI is tcp://localhost:9300"}},
         "",
         {"URI"},
         false},
        {"TheTempFolderCannotBeMade",
         "a `temp` that cannot be made",
         inStartup("<temp>../temp<", "<temp>/proc/velbootstrap<"),
         kStart,
         0,
         {{Place::Log, "Failed to create temp directory \"/proc/velbootstrap\"."}},
         "/configuration/startup.xml:19:3: error: /proc/velbootstrap cannot be made or written: /proc: root "
         "cannot write to it",
         {"/proc/velbootstrap"}},
        {"ALevelIsInSmallLetters",
         "`level=\"info\"`",
         [](I& at) { at.replace(I::logging, "level=\"INFO\"", "level=\"info\""); },
         kStart,
         0,
         {{Place::Check,
           "/configuration/zorlogconfig.xml:4: element logging: … The value 'info' is not an element of the "
           "set {'FATAL', 'ERROR', 'WARN', 'INFO', 'DEBUG'}."}},
         "/bin/zorlogconfig.xml:4:14: error: attribute \"level\" of <logging>: value 'info' not in "
         "enumeration: did you mean \"INFO\"?",
         {"logging"}},
        {"ALoggingSectionIsMisspelt",
         "`<isRunning>` for `<isrunning>`, and `-isrunning`",
         [](I& at) {
             at.replace(I::logging, "<isrunning>", "<isRunning>");
             at.replace(I::logging, "</isrunning>", "</isRunning>");
         },
         {"-isrunning"},
         1,
         {{Place::Check,
           "/configuration/zorlogconfig.xml:18: element isRunning: … This element is not expected."},
          {Place::DefaultLog, "logging config element \"isrunning\" is missing."}},
         "/bin/zorlogconfig.xml:18:3: error: unknown element <isRunning>: did you mean \"isrunning\"?",
         {"isRunning"}},
    };
}

constexpr const char* kDispatcherIsGone =
    "ping loop: process \"dispatcher\" is not active, so restarting it.";

std::vector<Mistake> ofThePrograms() {
    return {
        {"AProgramIsNotThere",
         "a `path` where no program is, by a wrong Java home for example",
         inBootstrap("${bin_path}/sampledispatcher", "${java_home}/bin/java"),
         kStartInVain,
         1,
         {{Place::Log, "execve failed, errno=2"}, {Place::Log, kDispatcherIsGone}},
         "/bin/bootstrap_linuxi38632.xml:7:9: error: /opt/java/bin/java: No such file or directory [child "
         "dispatcher]",
         {"dispatcher"}},
        {"AProgramMayNotBeRun",
         "a `path` to a file that is not executable",
         inBootstrap("${bin_path}/sampledispatcher", "${install_path}/configuration/startup.xml"),
         kStartInVain,
         1,
         {{Place::Log, "execve failed, errno=13"}, {Place::Log, kDispatcherIsGone}},
         "/bin/bootstrap_linuxi38632.xml:7:9: error: /configuration/startup.xml: it may not be executed "
         "[child dispatcher]",
         {"dispatcher"}},
        {"AScriptDoesNotSayItsShell",
         "a `path` to a script without `#!`",
         [](I& at) {
             at.write("bin/script", "sleep 60\n");
             at.mode("bin/script", 0755);
             at.replace(I::bootstrap, "${bin_path}/sampledispatcher", "${bin_path}/script");
         },
         kStartInVain,
         1,
         {{Place::Log, "execve failed, errno=8"}, {Place::Log, kDispatcherIsGone}},
         "/bin/bootstrap_linuxi38632.xml:7:9: error: /bin/script: it is neither a program nor a script that "
         "begins with #! [child dispatcher]",
         {"dispatcher"}},
        {"AChildEndsAtOnce",
         "an option that the child does not know: it ends at once",
         inBootstrap("--service=dispatcher", "--servise=dispatcher"),
         kStartInVain,
         1,
         {{Place::Log, kDispatcherIsGone}},
         "",
         {"dispatcher"},
         false},
        {"ThereIsNoJavaHome",
         "no `JAVA_HOME`",
         nothing,
         kStart,
         0,
         {{Place::Log,
           "A value for JAVA_HOME must be provided either as an environment variable or with the -java_home= "
           "command line argument."}},
         "/configuration/zorEnvironmentVars.ini: error: no command works without a Java home: set JAVA_HOME "
         "here or in the environment",
         {"JAVA_HOME"},
         true,
         "bin",
         {"JAVA_HOME"}},
        {"TheLibraryIsMissing",
         "`libSEK_Crypto_Interface.so` is not beside the program",
         [](I& at) { at.remove("bin/libSEK_Crypto_Interface.so"); },
         kStartInVain,
         1,
         {{Place::Log, "failed to initialize crypto."}, {Place::Log, "failed to create SEK handle:"}},
         "/bin/libSEK_Crypto_Interface.so: error: the security library is not beside the program",
         {"crypto", "libSEK_Crypto_Interface.so"}},
        {"ThePortIsTakenByAPlainServer",
         "the child's port is taken by a server that speaks plainly",
         [](I& at) { at.occupyPort("HTTP/1.1 400 Bad Request\r\n\r\n"); },
         kStartInVain,
         1,
         {{Place::Log, kDispatcherIsGone},
          {Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: … (the "
           "peer seems not to speak TLS)"}},
         "/bin/bootstrap_linuxi38632.xml:13:19: error: the service does not run, but process … listens on "
         "port …, where this child would [child dispatcher]",
         {"dispatcher"},
         false},
        {"ThePortIsTakenByASilentServer",
         "the child's port is taken by a server that says nothing",
         [](I& at) { at.occupyPort(""); },
         kStartInVain,
         1,
         {{Place::Log, kDispatcherIsGone},
          {Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) not finished after "
           "10 s…"}},
         "/bin/bootstrap_linuxi38632.xml:13:19: error: the service does not run, but process … listens on "
         "port …, where this child would [child dispatcher]",
         {"dispatcher"},
         false},
    };
}

std::vector<Mistake> ofTheCertificates() {
    return {
        {"TheCertificateHasExpired",
         "the child's certificate has expired",
         [](I& at) {
             at.dispatcherShows({.name = "old",
                                 .alternatives = {"DNS:localhost"},
                                 .notBeforeSec = -7200,
                                 .notAfterSec = -3600});
         },
         kStartInVain,
         1,
         {{Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: "
           "certificate verify failed: certificate has expired (certificate of CN=old, names DNS:localhost, "
           "good from … to …, issued by CN=ca)"}},
         "/configuration/dispatcher.pem: error: the certificate of CN=old has expired: it was good until …",
         {"CN=old", "dispatcher.pem"}},
        {"TheCertificateIsForAnotherHost",
         "the child's certificate is for another host",
         [](I& at) { at.dispatcherShows({.name = "elsewhere", .alternatives = {"DNS:elsewhere.example"}}); },
         kStartInVain,
         1,
         {{Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: "
           "certificate verify failed: hostname mismatch (expected localhost, certificate of CN=elsewhere, "
           "names DNS:elsewhere.example, good from … to …, issued by CN=ca)"}},
         "/bin/bootstrap_linuxi38632.xml:16:19: error: no certificate beside the settings is good for "
         "\"localhost\": /configuration/dispatcher.pem has DNS:elsewhere.example [child dispatcher]",
         {"CN=elsewhere", "dispatcher.pem"}},
        {"TheAuthorityIsAnother",
         "the child's certificate is another authority's, or `ca.pem` is",
         [](I& at) { at.dispatcherOfAnotherAuthority(); },
         kStartInVain,
         1,
         {{Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: "
           "certificate verify failed: unable to get local issuer certificate (certificate of CN=dispatcher, "
           "… issued by CN=stranger)"}},
         "/configuration/dispatcher.pem: error: the service will not believe a child that shows this "
         "certificate: unable to get local issuer certificate, issued by CN=stranger",
         {"CN=dispatcher", "dispatcher.pem"}},
        {"TheAuthorityIsMissing",
         "`ca.pem` is not there",
         [](I& at) { at.remove("configuration/ca.pem"); },
         kStartInVain,
         1,
         {{Place::Check, "/configuration/sek.cnf names ../configuration/ca.pem where no file is. …"},
          {Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: "
           "../configuration/sek.cnf [gateway] VerifyCAFile = ../configuration/ca.pem: No such file or "
           "directory"}},
         "/configuration/sek.cnf:3:1: error: ../configuration/sek.cnf [gateway] VerifyCAFile = "
         "../configuration/ca.pem: No such file or directory",
         {"ca.pem"}},

        {"TheOwnKeyCanBeReadByOthers",
         "the service's own key can be read by others",
         [](I& at) {
             at.serviceShowsItself();
             at.mode("configuration/service.key", 0644);
         },
         kStartInVain,
         1,
         {{Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: "
           "../configuration/sek.cnf [gateway] PrivateKey: private key file ../configuration/service.key can "
           "be read by others (mode 0644): chmod 600 it"}},
         "/configuration/service.key: error: the private key can be read by others: chmod 600 it",
         {"service.key"}},
        {"TheOwnKeyIsMissing",
         "the service's own key is not there",
         [](I& at) {
             at.serviceShowsItself();
             at.remove("configuration/service.key");
         },
         kStartInVain,
         1,
         {{Place::Check, "/configuration/sek.cnf names ../configuration/service.key where no file is. …"},
          {Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: "
           "../configuration/sek.cnf [gateway] PrivateKey = ../configuration/service.key: No such file or "
           "directory"}},
         "/configuration/sek.cnf:6:1: error: ../configuration/sek.cnf [gateway] PrivateKey = "
         "../configuration/service.key: No such file or directory",
         {"service.key"}},
        {"TheChildsKeyIsMissing",
         "the key of a child that reads the same `sek.cnf` is not there",
         [](I& at) { at.remove("configuration/dispatcher.key"); },
         kStartInVain,
         1,
         {{Place::Check, "/configuration/sek.cnf names ../configuration/dispatcher.key where no file is. …"},
          {Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: … (the "
           "peer ended the connection without a TLS close notification)"}},
         "/configuration/sek.cnf:9:1: error: ../configuration/sek.cnf [dispatcher] PrivateKey = "
         "../configuration/dispatcher.key: No such file or directory",
         {"dispatcher.key"}},
        {"ASettingIsUnknown",
         "`sek.cnf`: `VerifyCaFiles`, which is no command",
         inSettings("VerifyCAFile", "VerifyCaFiles"),
         kStartInVain,
         1,
         {{Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: "
           "../configuration/sek.cnf [gateway] VerifyCaFiles = ../configuration/ca.pem: unknown command"}},
         "/configuration/sek.cnf:3:1: error: ../configuration/sek.cnf [gateway] VerifyCaFiles = "
         "../configuration/ca.pem: unknown command",
         {"sek.cnf"}},
        {"ASectionIsMisspelt",
         "`sek.cnf`: `[gatway]`",
         inSettings("[gateway]", "[gatway]"),
         kStartInVain,
         1,
         {{Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: "
           "../configuration/sek.cnf [gateway]: no such section"}},
         "/configuration/sek.cnf:2:1: error: ../configuration/sek.cnf [gateway]: no such section: is it "
         "[gatway] that is meant?",
         {"sek.cnf"}},
        {"ABracketIsMissing",
         "`sek.cnf`: `[gateway`",
         inSettings("[gateway]", "[gateway"),
         kStartInVain,
         1,
         {{Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: cannot "
           "read ../configuration/sek.cnf line 2: missing close square bracket"}},
         "/configuration/sek.cnf:2:1: error: cannot read ../configuration/sek.cnf line 2: missing close "
         "square bracket",
         {"sek.cnf"}},
        {"VerificationIsMisspelt",
         "`sek.cnf`: `VerifyMode = none`",
         inSettings("= Peer", "= none"),
         kStartInVain,
         1,
         {{Place::Log,
           "failed to establish, SEK error: TLS handshake with localhost (127.0.0.1:9300) failed: "
           "../configuration/sek.cnf [gateway] VerifyMode = none: bad value (…)"}},
         "/configuration/sek.cnf:4:1: error: ../configuration/sek.cnf [gateway] VerifyMode = none: bad value "
         "(…)",
         {"sek.cnf"}},
    };
}

const std::string kTwin = "a service that was started by hand runs as process …: stop it first";

std::vector<Mistake> ofTheCommands() {
    return {
        {"TheCommandIsGivenInAnotherFolder",
         "a command given in another folder than `bin/`; only `-stdoutLog=INFO` shows anything",
         nothing,
         {"-start", "-stdoutLog=INFO"},
         0,
         {{Place::Terminal, "failed to find ZOR element in bootstrap config (via CFGAPI)"},
          {Place::Terminal, "A value for JAVA_HOME must be provided…"}},
         "",
         {"ZOR element"},
         false,
         "temp/helper"},
        {"TheCommandIsGivenBesideBin",
         "a command given in a folder beside `bin/`",
         nothing,
         kStart,
         1,
         {{Place::DefaultLog, "cannot open bootstrap config file \"/temp/bootstrap_linuxi38632.xml\"."}},
         "",
         {"bootstrap_linuxi38632.xml"},
         false,
         "temp"},
        {"ABlankStandsForTheEqualsSign",
         "`-testReadyTries 60`, with a blank",
         nothing,
         {"-start", "-testReadyTries", "60"},
         0,
         {},
         "",
         {},
         false},
        {"AnotherUserStops",
         "`-stop` by another user; the service runs on",
         [](I& at) { at.startByHand(); },
         kStop,
         0,
         {{Place::Guard, kTwin}},
         "",
         {"process"},
         false,
         "bin",
         {},
         true},
        {"AnotherUserStarts",
         "`-start` by another user, beside the service",
         [](I& at) { at.startByHand(); },
         kStartInVain,
         1,
         {{Place::Guard, kTwin}},
         "",
         {"process"},
         false,
         "bin",
         {},
         true},
        {"RootStarts",
         "`-start` by root, where `logs/` is the service's user's",
         [](I& at) { at.logsBelongToUser(); },
         kStartInVain,
         1,
         {{Place::Log,
           "PID file \"/logs/velbootstrap_service.pid\" belongs to the user with id …, so commands will not "
           "find this process. Run the service and its commands as that user."}},
         "",
         {"velbootstrap_service.pid"},
         false},
        {"TheLogsCannotBeWritten",
         "`logs/` cannot be written to",
         [](I& at) {
             at.service().asOrdinaryUser();
             at.mode("logs", 0555);
         },
         kStartInVain,
         1,
         {{Place::Guard, kTwin}},
         "/logs: error: … cannot write to it: no log and no PID file, so that no command finds the daemon",
         {"process", "logs"}},
        {"ATwinIsStarted",
         "`systemctl start` beside a service that was started by hand, which `-isrunning` finds",
         [](I& at) { at.startByHand(); },
         {"-isrunning"},
         0,
         {{Place::Guard, kTwin}},
         "",
         {"process"},
         false},
    };
}

std::vector<Mistake> all() {
    std::vector<Mistake> table;
    for (const auto& part : {ofTheDocuments(), ofThePrograms(), ofTheCertificates(), ofTheCommands()})
        table.insert(table.end(), part.begin(), part.end());
    return table;
}

}  // namespace

const std::vector<Mistake>& mistakes() {
    static const std::vector<Mistake> table = all();
    return table;
}

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.name;
}

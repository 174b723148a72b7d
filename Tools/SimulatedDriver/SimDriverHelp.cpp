#include "Tools/SimulatedDriver/SimDriverHelp.h"

#include "Tools/SimulatedDriver/ESimRequestKind.h"

std::string SimDriverHelpText()
{
    return R"(NAME
    simdriver - a simulated tablet driver for the tablet coordinator

SYNOPSIS
    simdriver [--trace] CONFIG.json
    simdriver --check CONFIG.json
    simdriver --version
    simdriver --help

DESCRIPTION
    simdriver serves one tablet driver port and answers the coordinator as a real tablet
    driver does: it has tablets with their own local indexes and system IDs, keeps the
    tablet block the coordinator sends, reports touch capabilities, the last tablet used,
    its version and its byte order, records touch-client registrations and answers Apple
    Events. Everything it is comes from CONFIG.json. It runs until it receives SIGTERM,
    SIGINT or SIGHUP, and keeps its state (tablet block, IDs set by the coordinator) for as
    long as it runs, across any number of coordinator restarts.

    The port lives in the user's port directory, or in $KELTO_PORT_DIR when that is set, so
    that a test can run drivers and a coordinator of its own beside the user's.

OPTIONS
    --trace     Write one line per request to standard error: message id, what was asked,
                and the answer, e.g.
                  simdriver[Kelto]: 'KEPK' get system-id tablet #0 -> status 0x0000, 2 bytes of data
    --check     Read CONFIG.json, report the first problem, and exit without serving.
    --help      This text.
    --version   The program's version.

SIGNALS
    SIGTERM, SIGINT, SIGHUP   stop serving and exit with status 0.
    SIGUSR1                   read CONFIG.json again. Tablets keep the system ID the
                              coordinator gave them unless the file changes that tablet's
                              "SystemID"; tablets added to the end of "Tablets" appear, tablets
                              removed from the end are gone. The tablet block and the
                              registrations stay, the fault counts start again. A file with
                              a problem is reported and the running configuration kept. The
                              port name cannot change.

MESSAGES
    'KEPK'  a serialized event packet; answered in the same form. A driver without packet
            messaging gives no reply data, as an older driver does.
    0       a transit record (the legacy form); answered within the room of the request:
            the reply holds as many data bytes as the request did, so a request sent
            without data gets no data back.
    'ENDI'  the byte-order probe; one byte: 1 means "same order as the coordinator".
    'AEVT'  a flattened Apple Event; answered with a reply event whose first item is the
            configured 'errn' (when there is one), then the direct object '----' holding the
            driver's "Name" as UTF-8 text.

    With "ByteOrder": "other", every header field of a packet or transit record the driver
    writes is byte-reversed and every transit record is read reversed, as a driver of the
    other byte order does; the data inside them is never reversed, and holds its values in
    the coordinator's order.

REQUESTS
    The key chain of a request decides what it asks (the last key, unless said otherwise):
      EParameterIDFileVersion           get: the version, 5 bytes (the coordinator's probe)
      EParameterIDTabletSystemID        get: the tablet's own system ID (2 bytes), 0xFFFF
                                        when there is no tablet at that index; set: the
                                        tablet takes the 2-byte ID
      EParameterIDTabletMultiTouchCapabilities
                                        get: the tablet's "TouchCapabilities" as a settings
                                        archive; KELSTATUS_OBJECT_NOT_FOUND without
      EParameterIDSize, reference EParameterIDTabletBlock
                                        get: the size of the stored tablet block (4 bytes)
      EParameterIDTabletBlock           set: store the block; get: the stored block. Both
                                        size and block answer KELSTATUS_OBJECT_NOT_FOUND
                                        until a block was set.
      EParameterIDCount, reference EObjectIDTablet
                                        the number of tablets (2 bytes), or "CountByID" /
                                        "CountByIndex" when set, by the key's addressing mode
      EParameterIDLastTabletUsed        get: system ID of tablet "LastTabletUsed", or 0xFFFF
      EParameterIDLastTabletUsedTimestamp
                                        get: "LastTabletUsedTimestamp" (4 bytes)
      EObjectIDMultiTouchAPI, EParameterIDMultiTouchAPIClient (anywhere in the chain)
                                        get: the registrations recorded so far, a settings
                                        array of {"Command": n, "Registration": map}; any
                                        other command records the settings map it carries
      a key EParameterIDGraphicsTablet with ECommandCreate
                                        "CreateStatus"; on success the generic answer
      a key EParameterIDGraphicsTablet with ECommandDestroy
                                        drops the tablet whose system ID is the 2-byte data
      a key EParameterIDIndex           "IndexStatus"; on success the generic answer
      anything else                     the generic answer, or KELSTATUS_OBJECT_NOT_FOUND
                                        when it names a tablet the driver does not have
    A tablet is named by an EObjectIDTablet key: in EAddrModeByLocalIndex by the driver's
    own index, in EAddrModeAllSubordinate all of them, in any other mode by system ID.
    The generic answer is a settings archive of the map {"Driver": "Name", "Command": n,
    "Parameter": identifier of the last key, "TabletIndex": i, "SystemID": s} (the tablet
    entries when a tablet is named), so a test can see which driver a request reached.
    Multi-byte answers are in the coordinator's byte order.

CONFIGURATION
    A JSON object, read with the project's settings reader. Unknown keys, values of the
    wrong type and values out of range are refused with one line that names the key.
      "PortName"        string, required: the port to serve, e.g.
                        "com.kelto.KeltoTabletDriverMessageServer" or
                        "com.kelto.PenTabletDriverMessageServer"
      "Version"         string, required: the driver's version, e.g. "6.3.0" or "6.12";
                        answered to the coordinator's file-version probe
      "Name"            string: names the driver in answers and trace lines (default: the
                        port name)
      "PacketMessaging" true/false: whether 'KEPK' is understood. Default: true when the
                        version is at least the one from which the coordinator sends
                        packets to that port (6.1.2 for the Kelto port, 5.2.0 for the Pen
                        port), so that the driver is a legacy or a packet driver as its
                        version says
      "ByteOrder"       "same" (default) or "other"
      "EndiannessReply" integer -1 to 255: the 'ENDI' byte (default 1, or 2 with "other");
                        -1: no reply data
      "Tablets"         array of objects, local index 0 first:
          "SystemID"          integer 0 to 65535: the driver's own (possibly stale) idea of
                              the tablet's system ID (default: the local index)
          "Model"             string: answered to a get of the tablet's model
          "SerialNumber"      string: answered to a get of its serial number
          "TouchCapabilities" object: the settings map answered for the tablet
      "LastTabletUsed"  integer: local index of the tablet used last, -1 for none (default)
      "LastTabletUsedTimestamp"  integer 0 to 4294967295 (default 0)
      "CountByIndex", "CountByID"  integer 0 to 65535: fixed tablet-count answers
      "CreateStatus", "IndexStatus"  integer 0 to 65535: status of create and index
                        requests (default 0, success)
      "AppleEvents"     object: "Reply" true/false (default true), "ErrorNumber" integer
                        (an 'errn' item in every reply)
      "Faults"          array of objects, each:
          "Request"       required, one of: )" +
           SimRequestKindNames() + R"(
          "Command"       only requests with this command: DoNothing, Get, Set, Create,
                          Destroy, Flush, GetDefault, Subscribe, Unsubscribe
          "Action"        required: "slow" (answer after "Milliseconds"), "hang" (never
                          answer: hold the request "Milliseconds", default one hour, taking
                          no other request, then drop it), "empty" (no reply data, the
                          request not handled), "exit" (end the process in the middle of
                          the request, with "ExitCode", default 70)
          "Milliseconds"  integer
          "Skip"          the first that many matching requests are served normally
          "Times"         then that many get the fault (default 0: all that follow)
          "ExitCode"      integer 0 to 255

EXAMPLE
    {
        "Name": "Kelto",
        "PortName": "com.kelto.KeltoTabletDriverMessageServer",
        "Version": "6.3.0",
        "Tablets": [ { "SystemID": 0, "Model": "PTH-660",
                       "TouchCapabilities": { "MaxFingers": 10 } } ],
        "LastTabletUsed": 0,
        "LastTabletUsedTimestamp": 1000,
        "Faults": [ { "Request": "tablet-block", "Command": "Set", "Action": "slow",
                      "Milliseconds": 500, "Times": 1 } ]
    }

EXIT STATUS
    0   stopped by a signal
    1   the configuration file is missing or has a problem (one line on standard error)
    2   wrong command line
    3   the port cannot be served (another process serves it, or the port directory is
        unusable)
    and the "ExitCode" of an "exit" fault.
)";
}

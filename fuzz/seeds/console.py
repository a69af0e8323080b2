"""What a console posts."""

from corpus import seed

SOAP = "http://www.w3.org/2003/05/soap-envelope"
ADDRESSING = "http://schemas.xmlsoap.org/ws/2004/08/addressing"
ENUMERATION = "http://schemas.xmlsoap.org/ws/2004/09/enumeration"
TRANSFER = "http://schemas.xmlsoap.org/ws/2004/09/transfer"
MANAGEMENT = "http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd"
CIM = "http://schemas.dmtf.org/wbem/wscim/1/cim-schema/2/"
NEWEST_CONTEXT = "newest-context"  # which the target replaces by the context that it was given last
IDENTIFY = (
    f'<s:Envelope xmlns:s="{SOAP}" xmlns:wsmid="http://schemas.dmtf.org/wbem/wsman/identity/1/wsmanidentity.xsd">'
    "<s:Header/><s:Body><wsmid:Identify/></s:Body></s:Envelope>"
)


def envelope(action, name, body="", selectors=""):
    return (
        f'<s:Envelope xmlns:s="{SOAP}" xmlns:a="{ADDRESSING}" xmlns:e="{ENUMERATION}" xmlns:w="{MANAGEMENT}"><s:Header>'
        f"<a:Action>{action}</a:Action><a:MessageID>uuid:9</a:MessageID><w:ResourceURI>{CIM}{name}</w:ResourceURI>"
        f"{selectors}</s:Header><s:Body>{body}</s:Body></s:Envelope>"
    )


def power(state):
    keys = (
        '<w:SelectorSet><w:Selector Name="CreationClassName">CIM_ComputerSystem</w:Selector>'
        '<w:Selector Name="Name">ManagedSystem</w:Selector></w:SelectorSet>'
    )
    service = f"{CIM}CIM_PowerManagementService"
    return envelope(
        f"{service}/RequestPowerStateChange",
        "CIM_PowerManagementService",
        f'<p:RequestPowerStateChange_INPUT xmlns:p="{service}"><p:PowerState>{state}</p:PowerState><p:ManagedElement>'
        f"<a:Address>{ADDRESSING}/role/anonymous</a:Address><a:ReferenceParameters><w:ResourceURI>{CIM}CIM_ComputerSystem"
        f"</w:ResourceURI>{keys}</a:ReferenceParameters></p:ManagedElement></p:RequestPowerStateChange_INPUT>",
    )


def post(body, more="", path="/wsman"):
    return (
        f"POST {path} HTTP/1.1\r\nHost: pc\r\nContent-Type: application/soap+xml;charset=UTF-8\r\n{more}"
        f"Content-Length: {len(body)}\r\n\r\n{body}"
    )


def pull(name, context=NEWEST_CONTEXT, most=2):
    return envelope(
        f"{ENUMERATION}/Pull",
        name,
        f"<e:Pull><e:EnumerationContext>{context}</e:EnumerationContext><e:MaxElements>{most}</e:MaxElements></e:Pull>",
    )


def console():
    system = "CIM_ComputerSystem"
    association = "CIM_AssociatedPowerManagementService"
    for name, request in {
        "identify": post(IDENTIFY),
        "identify-twice": post(IDENTIFY) + post(IDENTIFY),
        "close": post(IDENTIFY, "Connection: close\r\n"),
        "expect": post(IDENTIFY, "Expect: 100-continue\r\n"),
        "chunks": "POST /wsman HTTP/1.1\r\nContent-Type: application/soap+xml\r\nTransfer-Encoding: chunked\r\n\r\n"
        "5\r\n<s:En\r\n4\r\nvelo\r\n0\r\n\r\n",
        "get": "GET /wsman HTTP/1.1\r\nHost: pc\r\n\r\n",
        "other-path": post(IDENTIFY, path="/other?x=1"),
        "other-type": "POST /wsman HTTP/1.1\r\nContent-Type: text/xml\r\nContent-Length: 2\r\n\r\n<a",
        "too-long": "POST /wsman HTTP/1.1\r\nContent-Length: 99999999\r\n\r\n",
        "upgrade": "GET /wsman HTTP/1.1\r\nConnection: Upgrade\r\nUpgrade: h2c\r\n\r\n",
        "no-http": "SSH-2.0-client\r\n",
        "power-off": post(power(8)),
        "power-bad": post(power("99999")),
        "get-system": post(envelope(f"{TRANSFER}/Get", system)),
        "enumerate": post(envelope(f"{ENUMERATION}/Enumerate", system, "<e:Enumerate/>")),
        "enumerate-references": post(
            envelope(
                f"{ENUMERATION}/Enumerate",
                system,
                "<e:Enumerate><w:EnumerationMode>EnumerateEPR</w:EnumerationMode></e:Enumerate>",
            )
        ),
        "pull": post(envelope(f"{ENUMERATION}/Enumerate", system, "<e:Enumerate/>")) + post(pull(system)),
        "pull-one-by-one": post(envelope(f"{ENUMERATION}/Enumerate", association, "<e:Enumerate/>"))
        + 3 * post(pull(association, most=1)),
        "pull-unknown": post(pull(system, "objects-0")),
        "unknown-action": post(envelope("urn:nothing", system)),
        "soap-1.1": post('<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"><s:Body/></s:Envelope>'),
        "doctype": post("<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>"),
        "deep": post("<a>" * 80 + "</a>" * 80),
        "must-understand": post(
            f'<s:Envelope xmlns:s="{SOAP}" xmlns:x="urn:x"><s:Header><x:y s:mustUnderstand="true"/></s:Header>'
            "<s:Body/></s:Envelope>"
        ),
    }.items():
        seed("wsman", name, request)

"""Holds docs/openapi.json against the gate's real answers, and against the gate's own table of pages."""

import gzip
import http.client
import json
import pathlib
import re
import urllib.error
import urllib.parse
import urllib.request

import jsonschema

from harness import LIMIT_SECONDS, fail, wait_for

ROOT = pathlib.Path(__file__).resolve().parents[2]
API = "/api/1/"
EVENTS = API + "events"

# What is asked, with the status that it has. Each documented parameter stands in one with 200.
SAMPLES = [
    ("/metrics", [], 200), ("/metrics", [("collect[]", "PI"), ("collect[]", "CPUP")], 200),
    ("/metrics", [("collect[]", "NONE")], 400),
    ("/metrics/node", [], 200), ("/metrics/node", [("collect[]", "PI")], 400),
    ("/-/healthy", [], 200), ("/-/ready", [], 200),
    ("records", [], 200),
    ("schema", [("record", "CPUP")], 200), ("schema", [("record", "PI"), ("category", "4")], 200),
    ("schema", [("record", "4:PI")], 200), ("schema", [("record", "NONE")], 404),
    ("get", [("records", "PI,4:CPUP"), ("records", "NONE"), ("rates", "1")], 200),
    ("get", [("records", "CPUP"), ("columns", "Processor ID,CPU %"), ("where", "Processor ID != x"),
             ("where", "CPU %>=0"), ("sort", "-CPU %"), ("sort", "Processor ID"), ("limit", "1")], 200),
    ("get", [("records", "NONE")], 404),
    ("last", [("records", "PI,NONE")], 200), ("last", [("records", "NONE")], 404),
    ("last", [("records", "PI"), ("columns", "CPU %"), ("where", "CPU %>=0"), ("sort", "+CPU %"),
              ("limit", "100000")], 200),
    ("history", [("record", "PI"), ("category", "4"), ("since", "0"), ("until", "9000000000"),
                 ("after", "9000000000,1"), ("columns", "Record Time,CPU %"), ("where", "CPU % >= 0"),
                 ("sort", "-Record Time"), ("limit", "2")], 200),
    ("history", [("record", "PI"), ("at", "1"), ("sort", "CPU %")], 200),
    ("history", [("record", "PI"), ("columns", "CPU %,Run Queue"), ("points", "10"),
                 ("by", "Record Type")], 200),
    ("history", [("record", "PI"), ("columns", "CPU %"), ("points", "2000"), ("by", "")], 200),
    ("status", [], 200),
    ("workgroups", [("pid", "1")], 200), ("workgroups", [("name", "root")], 200),
    ("cgroups", [("path", "/"), ("depth", "0"), ("columns", "Path"), ("where", "Path ~ *"),
                 ("sort", "Path"), ("limit", "5")], 200),
    ("cgroups", [("path", "/system.slice"), ("depth", "3")], 200),
    ("alarms", [("since", "0"), ("until", "9000000000"), ("limit", "5"), ("state", "active")], 200),
    ("alarm", [("id", "9000000000")], 404),
    ("log", [], 200), ("log", [("lines", "1")], 200), ("gate", [], 200),
    ("nothing", [], 404),
]

# Wrong values: the parameter at fault is the last one.
WRONG = [
    ("schema", "record=PI&record=PI"), ("schema", "record=PI&category=44"),
    ("get", "records="), ("get", "records=PI&rates=2"),
    ("get", "records=PI&columns=None+such"), ("get", "records=PI&where=CPU"),
    ("get", "records=PI&sort=None+such"), ("get", "records=PI,CPUP&limit=1"),
    ("last", "records=PI&limit=0"), ("last", "records=PI&limit=1x"),
    ("history", "record=PI&since=1.5"), ("history", "record=PI&until=9223372036854775808"),
    ("history", "record=PI&at="), ("history", "record=PI&after=1"),
    ("history", "record=PI&sort=CPU+%25"), ("history", "record=PI&by=Interval"),
    ("history", "record=PI&columns=CPU+%25&points=0"), ("history", "record=PI&points=5&columns=Record+Type"),
    ("cgroups", "path=/&depth=8"), ("log", "lines=201"), ("alarm", "id=x"),
    ("alarms", "state=old"), ("events", "since=-1"), ("events", "since=x"),
]


class Description:
    """The document, and what an answer has to be by it."""

    def __init__(self):
        self.document = json.loads((ROOT / "docs/openapi.json").read_text())
        self.paths = {path: entry["get"] for path, entry in self.document["paths"].items()}
        for schema in self.document["components"]["schemas"].values():
            jsonschema.Draft202012Validator.check_schema(schema)

    def resolve(self, entry):
        while "$ref" in entry:
            place = self.document
            for name in entry["$ref"].removeprefix("#/").split("/"):
                place = place[name]
            entry = place
        return entry

    def parameters(self, path, where="query"):
        entries = map(self.resolve, self.paths.get(path, {}).get("parameters", []))
        return {entry["name"]: entry for entry in entries if entry["in"] == where}

    def check_value(self, what, value, schema):
        # References are looked up within the schema that they stand in.
        validator = jsonschema.Draft202012Validator(
            {**schema, "components": self.document["components"]})
        for error in validator.iter_errors(value):
            # Of a choice of schemas the reasons of each say more than that none fits.
            reasons = [reason.message[:200] for reason in error.context or [error]]
            fail(f"{what}: {error.json_path}: {'; '.join(reasons[:5])}")

    def check_answer(self, what, path, status, kind, body):
        """The body, parsed where it is JSON. A page that there is not answers as each other may."""
        responses = self.paths.get(path, {}).get("responses", {"404": {
            "$ref": "#/components/responses/NotFound"}})
        response = self.resolve(responses.get(str(status), responses.get("default", {})))
        media = response.get("content", {}).get(kind.partition(";")[0])
        if media is None:
            fail(f"{what}: {status} with {kind} is not documented: {body[:200]!r}")
        value = json.loads(body) if kind == "application/json" else body.decode()
        self.check_value(what, value, media["schema"])
        return value

    def check_sample(self, path, query):
        """That the document allows what is asked, and would not refuse it as a client's library."""
        for name, entry in self.parameters(path).items():
            values = [value for key, value in query if key == name]
            schema = entry["schema"]
            if not values:
                continue
            if schema.get("type") == "array":
                value = values if entry.get("explode", True) else values[0].split(",")
            else:
                value = int(values[0]) if schema.get("type") == "integer" else values[0]
            self.check_value(f"{path}: the sample of {name}", value, schema)


class Gate:
    def __init__(self, base_url, token, description):
        self.base_url = base_url.rstrip("/")
        self.token = token
        self.description = description

    def request(self, page, method="GET", headers=None):
        if headers is None:
            headers = {"Authorization": f"Bearer {self.token}"}
        wanted = urllib.request.Request(self.base_url + page, headers=headers, method=method)
        try:
            return urllib.request.urlopen(wanted, timeout=LIMIT_SECONDS)
        except urllib.error.HTTPError as error:
            return error

    def ask(self, path, query, wanted, **how):
        text = query if isinstance(query, str) else urllib.parse.urlencode(query)
        page = path + ("?" + text if text else "")
        with self.request(page, **how) as answer:
            body, kind = answer.read(), answer.headers["Content-Type"]
        value = self.description.check_answer(page, path, answer.status, kind, body)
        if answer.status != wanted:
            fail(f"{page}: {answer.status}, not {wanted}: {body[:300]!r}")
        return value


def full_path(name):
    return name if name.startswith("/") else API + name


def source_routes():
    """What the gate takes: the parameters by the name of the page, read from its source."""
    source = (ROOT / "gate/console/ApiRequest.cpp").read_text()
    constants = dict(re.findall(r'constexpr Parameter (k\w+)\{"([^"]+)", k\w+\};', source))
    table = re.search(r"constexpr std::array kRoutes\{(.*?)\n\};", source, re.S).group(1)
    routes = {}
    for route in re.split(r"\bRoute\{", table)[1:]:
        name, _, rest = re.match(r'\s*"([^"]+)",\s*"([^"]+)",(.*)', route, re.S).groups()
        found = re.findall(r'\{"([^"]+)", k\w+\}|\b(k[A-Z]\w*)\b', rest)
        routes[name] = {text or constants[constant] for text, constant in found}
    if len(routes) < 5 or not routes["get"]:
        fail("gate/console/ApiRequest.cpp: its table can't be read")
    # The history has one more than a route has room for.
    routes["history"].update(set(constants.values()) - set().union(*routes.values()))
    routes["gate"] = set()
    routes["events"] = set(re.findall(r'key == "([^"]+)"', source))
    return routes


def check_routes(description):
    routes = source_routes()
    documented = {path.removeprefix(API) for path in description.paths if path.startswith(API)}
    if documented != set(routes):
        fail(f"pages that stand on one side only: {sorted(documented ^ set(routes))}")
    for name, parameters in routes.items():
        if odd := parameters ^ set(description.parameters(API + name)):
            fail(f"{API}{name}: parameters that stand on one side only: {sorted(odd)}")


def check_samples(gate, description):
    # There is no alarm to ask for here.
    asked = {EVENTS: {"records", "since"}, API + "alarm": {"id"}}
    for name, query, wanted in SAMPLES:
        path = full_path(name)
        if wanted == 200:
            asked.setdefault(path, set()).update(key for key, _ in query)
            description.check_sample(path, query)
        answer = gate.ask(path, query, wanted)
        if not isinstance(answer, dict):
            continue
        columns = [label for key, text in query if key == "columns" for label in text.split(",")]
        result = answer["results"][0] if "results" in answer else answer.get("history", {})
        if columns and any(list(row) != columns for row in result.get("rows", [])):
            fail(f"{path} {query}: not the columns: {result['rows'][0]}")
        if columns and "results" in answer and "rows_total" not in result:
            fail(f"{path} {query}: no rows_total")
    for path in description.paths:
        if path not in asked:
            fail(f"{path}: no sample")
        if odd := set(description.parameters(path)) - asked.get(path, set()):
            fail(f"{path}: no sample asks {sorted(odd)}")
    # Whatever their rows hold.
    names = [entry["record"] for entry in gate.ask(API + "records", [], 200)["records"]]
    for name in names:
        gate.ask(API + "schema", [("record", name)], 200)
    gate.ask(API + "get", [("records", ",".join(names))], 200)


def check_faults(gate, description):
    wrong = [(name, query, re.findall(r"([^&=]+)=", query)[-1]) for name, query in WRONG]
    pages = [path for path in description.paths if path.startswith(API)]
    for path in pages:
        wrong.append((path, "no_such=1", "no_such"))
        wrong += [(path, "", name) for name, entry in description.parameters(path).items()
                  if entry.get("required")]
    for name, query, field in wrong:
        error = gate.ask(full_path(name), query, 400)["error"]
        if error["code"] != "bad-field" or error.get("field") != field:
            fail(f"{name}?{query}: not {field} is at fault: {error}")
    for path in pages:
        if gate.ask(path, "", 401, headers={})["error"]["code"] != "unauthorized":
            fail(f"{path}: wrong code without a token")
    # Once, as each makes logins slower.
    gate.ask(API + "status", "", 401, headers={"Authorization": "Bearer wrong"})
    for path in ("/metrics", API + "status"):
        gate.ask(path, "", 405, method="POST")


def check_forms(gate):
    """HEAD, compression and the forms of the metrics."""
    page = API + "schema?record=PI"
    with gate.request(page) as answer:
        plain = answer.read()
    with gate.request(page, method="HEAD") as answer:
        if answer.status != 200 or answer.read() or int(answer.headers["Content-Length"]) != len(plain):
            fail(f"HEAD {page}: {answer.status}\n{answer.headers}")
    packed = {"Authorization": f"Bearer {gate.token}", "Accept-Encoding": "gzip"}
    with gate.request(page, headers=packed) as answer:
        if answer.headers["Content-Encoding"] != "gzip" or gzip.decompress(answer.read()) != plain:
            fail(f"{page}: no gzip, or another body in it\n{answer.headers}")
    text = gate.ask("/metrics", "", 200, headers={"Accept": "application/openmetrics-text"})
    if not text.endswith("# EOF\n"):
        fail("/metrics: no OpenMetrics where they are asked for")


def events(answer):
    """The events of a stream as (event, id, data), comments left out."""
    event, number, data = "", None, []
    for line in answer:
        name, _, value = line.decode().rstrip("\r\n").partition(":")
        value = value.removeprefix(" ")
        if name == "event":
            event = value
        elif name == "id":
            number = value
        elif name == "data":
            data.append(value)
        elif not name and not value and data:
            yield event, number, "\n".join(data)
            event, number, data = "", None, []


def first_events(gate, description, query="", last_id=None):
    """Those up to the end of the first batch with rows that are wanted."""
    page = EVENTS + query
    media = description.paths[EVENTS]["responses"]["200"]["content"]["text/event-stream"]
    headers = {"Authorization": f"Bearer {gate.token}"}
    if last_id is not None:
        headers["Last-Event-ID"] = last_id
    found = []
    with gate.request(page, headers=headers) as answer:
        if answer.status != 200 or answer.headers["Content-Type"] != "text/event-stream":
            fail(f"{page}: {answer.status} {answer.headers['Content-Type']}")
        for event, number, text in events(answer):
            if event not in media["x-events"]:
                fail(f"{page}: the event {event!r} is not documented")
            data = json.loads(text)
            description.check_value(f"{page}: {event}", data, media["x-events"][event])
            if number != (str(data["time"]) if event == "batch" else None):
                fail(f"{page}: the id {number} stands at {event} {text[:200]}")
            found.append((event, data))
            if event == "batch" and "rows" in [seen for seen, _ in found]:
                return found
    fail(f"{page}: it ends after {[event for event, _ in found]}")


def check_events(gate, description):
    live = first_events(gate, description, "?records=PI")
    if {data["record"] for event, data in live if event == "rows"} != {"PI"}:
        fail(f"events of PI: {live}")
    batch = live[-1][1]["time"]
    wait_for("kept rows", lambda: gate.ask(
        API + "history", [("record", "PI"), ("since", batch)], 200)["history"]["rows"])
    resumed = first_events(gate, description, "?records=PI&since=1", str(batch))
    times = [data["time"] for event, data in resumed if event == "rows"]
    if times[:1] != [batch] or "lost" in [event for event, _ in resumed]:
        fail(f"events from {batch} on begin at {times}")
    # Without a record, and from so long ago that not all is read back.
    back = first_events(gate, description, "?since=1")
    if back[0][0] != "lost" or "PI" not in [data.get("record") for _, data in back]:
        fail(f"events from long ago: {[(event, data.get('record')) for event, data in back]}")


def check(base_url, token):
    """Asks all that is documented of a gate whose daemon has the profile modern, a workgroup "root",
    a history, and schedules of PI and CGRP every few seconds. `token` may read; no TLS."""
    description = Description()
    gate = Gate(base_url, token, description)
    check_routes(description)
    for record in ("PI", "CGRP"):
        wait_for(f"rows of {record}", lambda name=record: gate.ask(
            API + "history", [("record", name)], 200)["history"]["rows"])
    try:
        check_samples(gate, description)
        check_faults(gate, description)
        check_forms(gate)
        check_events(gate, description)
    except (OSError, http.client.HTTPException, json.JSONDecodeError) as error:
        fail(f"the gate's answer can't be read: {error!r}")
    print(f"HTTP: {len(description.paths)} pages answer as docs/openapi.json says")

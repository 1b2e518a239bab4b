"""NETD and SOCK against ip, ss and prometheus-node-exporter."""

from live_classic import first_address

# Of `ip -s -s -j link`, by side and counter.
NETD_OF_IP = {
    "Bytes In": ("rx", "bytes"), "Packets In": ("rx", "packets"),
    "Multicast In": ("rx", "multicast"), "Errors In": ("rx", "errors"),
    "Drops In": ("rx", "dropped"), "Missed In": ("rx", "missed_errors"),
    "Overruns In": ("rx", "over_errors"), "FIFO Errors In": ("rx", "fifo_errors"),
    "Length Errors In": ("rx", "length_errors"), "Frame Errors In": ("rx", "frame_errors"),
    "CRC Errors In": ("rx", "crc_errors"),
    "Bytes Out": ("tx", "bytes"), "Packets Out": ("tx", "packets"),
    "Errors Out": ("tx", "errors"), "Drops Out": ("tx", "dropped"),
    "Overruns Out": ("tx", "fifo_errors"), "Carrier Errors Out": ("tx", "carrier_errors"),
    "Collisions": ("tx", "collisions"), "Carrier Changes": ("tx", "carrier_changes"),
}
# What of netdev is no sum of several of the kernel's counters, and netclass.
NETD_OF_EXPORTER = {
    "Bytes In": "receive_bytes_total", "Packets In": "receive_packets_total",
    "Multicast In": "receive_multicast_total", "Errors In": "receive_errs_total",
    "FIFO Errors In": "receive_fifo_total", "Bytes Out": "transmit_bytes_total",
    "Packets Out": "transmit_packets_total", "Errors Out": "transmit_errs_total",
    "Drops Out": "transmit_drop_total", "Overruns Out": "transmit_fifo_total",
    "Collisions": "transmit_colls_total", "Carrier Changes": "carrier_changes_total",
    "Max Transmission Unit": "mtu_bytes",
}
MBIT_BYTES = 125000


def link_readers(name):
    return {label: lambda peers, side=side, counter=counter:
            peers.links[name]["stats64"][side][counter]
            for label, (side, counter) in NETD_OF_IP.items()}


def compare_links_closely(found, first, second):
    for look in (first, second):
        rows = look.keyed("NETD", "Interface")
        links = {name: link for name, link in look.before.links.items() if name in look.after.links}
        found.expect_same("NETD interfaces missing", sorted(set(links) - set(rows)), [])
        for name in set(links) & set(rows):
            found.table(f"NETD {name}", rows[name], look, link_readers(name))
            compare_link(found, rows[name], links[name], look)


def compare_link(found, row, link, look):
    name = row["Interface"]
    for label, peer in (("Max Transmission Unit", link["mtu"]),
                        ("State", link["operstate"].lower()),
                        ("Master", link.get("master", "")),
                        ("IP Address", first_address(link)),
                        ("Hardware Address", hardware_address(link))):
        found.expect_same(f"NETD {name} {label}", row[label], peer)
    candidates = ipv6_candidates(link)
    if row["IPv6 Address"] not in candidates:
        found.expect_same(f"NETD {name} IPv6 Address", row["IPv6 Address"], candidates)
    for label, metric in NETD_OF_EXPORTER.items():
        key = f'node_network_{metric}{{device="{name}"}}'
        if look.before.told(key) is not None:
            found.between(f"NETD {name} {label} of the exporter", row[label], look.before.told(key),
                          look.after.told(key))
    speed = look.before.told(f'node_network_speed_bytes{{device="{name}"}}')
    # A driver that does not know says -1.
    found.expect_same(f"NETD {name} Speed Mbits", row["Speed Mbits"],
                      None if speed is None or speed < 0 else speed / MBIT_BYTES)
    duplex = {each["device"]: each["duplex"] for each in look.before.labels("node_network_info")}
    found.expect_same(f"NETD {name} Duplex", row["Duplex"],
                      duplex.get(name, "").replace("unknown", ""))


def hardware_address(link):
    """An address of zeros is none."""
    return link.get("address", "") if link.get("address", "").strip("0:") else ""


def ipv6_candidates(link):
    """The addresses of which any may stand for the interface."""
    own = [entry for entry in link.get("addr_info", []) if entry["family"] == "inet6"]
    own = [entry for entry in own if entry["scope"] == "global"] or own
    doubtful = ("temporary", "deprecated", "tentative", "dadfailed")
    own = [entry for entry in own if not any(entry.get(word) for word in doubtful)] or own
    return [entry["local"] for entry in own] or [""]


def compare_link_rates(found, rates):
    for name, row in rates.keyed("NETD", "Interface").items():
        if name not in rates.before.links or name not in rates.after.links:
            continue
        readers = link_readers(name)
        found.rates(f"NETD {name}", row, rates, rates.seconds, readers)
        for side in ("In", "Out"):
            speed = row["Speed Mbits"]
            read = readers[f"Bytes {side}"]
            percent = None if speed is None else (
                100 * (read(rates.after) - read(rates.before)) / rates.seconds / speed / MBIT_BYTES)
            found.between(f"NETD {name} Speed {side} %", row[f"Speed {side} %"], percent, percent,
                          0.0005, 0.03)


SOCK_OF_SS = {
    "Established": "ESTAB", "SYN Sent": "SYN-SENT", "SYN Received": "SYN-RECV",
    "FIN Wait 1": "FIN-WAIT-1", "FIN Wait 2": "FIN-WAIT-2", "Time Wait": "TIME-WAIT",
    "Close Wait": "CLOSE-WAIT", "Last ACK": "LAST-ACK", "Closing": "CLOSING",
    "Listening": "LISTEN",
}
# Of the table of `ss -s`: kind, and the column of all, of IPv4 or of IPv6.
SOCK_OF_SS_TABLE = {
    "TCP In Use": ("TCP", 1), "TCP6 In Use": ("TCP", 2), "UDP In Use": ("UDP", 1),
    "UDP6 In Use": ("UDP", 2), "Raw In Use": ("RAW", 1), "Raw6 In Use": ("RAW", 2),
    "Fragments In Use": ("FRAG", 1),
}
# Gauges. Each connection of the peers among themselves and with the agent counts.
SOCK_GAUGES = {
    "Sockets Used": "sockstat_sockets_used", "TCP In Use": "sockstat_TCP_inuse",
    "TCP6 In Use": "sockstat_TCP6_inuse", "TCP Allocated": "sockstat_TCP_alloc",
    "TCP Orphans": "sockstat_TCP_orphan", "TCP Time Waits": "sockstat_TCP_tw",
    "UDP In Use": "sockstat_UDP_inuse", "UDP6 In Use": "sockstat_UDP6_inuse",
    "UDP-Lite In Use": "sockstat_UDPLITE_inuse", "Raw In Use": "sockstat_RAW_inuse",
    "Raw6 In Use": "sockstat_RAW6_inuse", "Fragments In Use": "sockstat_FRAG_inuse",
    "Connections Tracked": "nf_conntrack_entries",
    "Connections Tracked Most": "nf_conntrack_entries_limit",
}
SOCK_BYTES = {
    "TCP Memory Bytes": "sockstat_TCP_mem_bytes", "UDP Memory Bytes": "sockstat_UDP_mem_bytes",
    "Fragment Memory Bytes": "sockstat_FRAG_memory",
}
# Since boot; UDP over both versions of IP.
SOCK_COUNTERS = {
    "Active Opens": ("Tcp_ActiveOpens",), "Passive Opens": ("Tcp_PassiveOpens",),
    "Failed Opens": ("Tcp_AttemptFails",), "Resets": ("Tcp_EstabResets",),
    "Resets Sent": ("Tcp_OutRsts",), "Segments In": ("Tcp_InSegs",),
    "Segments Out": ("Tcp_OutSegs",), "Segment Errors In": ("Tcp_InErrs",),
    "Retransmits": ("Tcp_RetransSegs",), "SYN Retransmits": ("TcpExt_TCPSynRetrans",),
    "Lost Retransmits": ("TcpExt_TCPLostRetransmit",), "Timeouts": ("TcpExt_TCPTimeouts",),
    "Listen Overflows": ("TcpExt_ListenOverflows",), "Listen Drops": ("TcpExt_ListenDrops",),
    "SYN Cookies Sent": ("TcpExt_SyncookiesSent",),
    "SYN Cookies Received": ("TcpExt_SyncookiesRecv",),
    "SYN Cookies Failed": ("TcpExt_SyncookiesFailed",),
    "Out Of Memory": ("TcpExt_TCPAbortOnMemory",),
    "Memory Pressures": ("TcpExt_TCPMemoryPressures",),
    **{label: (f"Udp_{counter}", f"Udp6_{counter}") for label, counter in (
        ("Datagrams In", "InDatagrams"), ("Datagrams Out", "OutDatagrams"),
        ("No Port", "NoPorts"), ("Datagram Errors In", "InErrors"),
        ("Receive Buffer Errors", "RcvbufErrors"), ("Send Buffer Errors", "SndbufErrors"),
        ("Checksum Errors", "InCsumErrors"))},
}


def of_exporter(*names):
    return lambda peers: peers.told(*(f"node_{name}" for name in names))


SOCK_READERS = {label: of_exporter(*(f"netstat_{name}" for name in names))
                for label, names in SOCK_COUNTERS.items()}
# With what they are called, and how much of them the peers' own connections are.
SOCK_GAUGE_READERS = (
    # qmtctl's connection has two ends, and the agent asks the kernel through sockets.
    ("SOCK", {label: of_exporter(name) for label, name in SOCK_GAUGES.items()}, 4),
    ("SOCK", {label: of_exporter(name) for label, name in SOCK_BYTES.items()}, 65536),
    # A state that no socket is in has no line.
    ("SOCK states", {label: lambda peers, word=word: peers.states.get(word, 0)
                     for label, word in SOCK_OF_SS.items()}, 1),
    ("SOCK of ss", {label: lambda peers, kind=kind, column=column: peers.sockets[kind][column]
                    for label, (kind, column) in SOCK_OF_SS_TABLE.items()}, 2),
)


def compare_sockets(found, first, second):
    for look in (first, second):
        row = look.rows["SOCK"][0]
        found.table("SOCK", row, look, SOCK_READERS)
        for what, readers, unit in SOCK_GAUGE_READERS:
            found.gauges(what, row, look, readers, unit)
        tracked, most = row["Connections Tracked"], row["Connections Tracked Most"]
        percent = None if tracked is None else 100 * tracked / most
        found.between("SOCK Connections Tracked %", row["Connections Tracked %"], percent, percent,
                      0.001)


def compare_socket_rates(found, rates):
    row = rates.rows["SOCK"][0]
    # One answer of the exporter, which it sends in many parts, is in its seconds alone.
    for label, read in SOCK_READERS.items():
        found.rates("SOCK", row, rates, rates.exporter_seconds, {label: read},
                    20 if label.startswith("Segments") else 1)
    grown = {label: SOCK_READERS[label](rates.after) - SOCK_READERS[label](rates.before)
             for label in ("Retransmits", "Segments Out")}
    percent = 100 * grown["Retransmits"] / grown["Segments Out"]
    found.between("SOCK Retransmits %", row["Retransmits %"], percent, percent, 0.5)

# Tables of the benchmarks' CSV files, and for each aim the figure and whether it is met.

function column(name) { return field[at[name]] }

BEGIN { split("cpu_% pauses_cpu_% median_us pauses_median_us p99_us pauses_p99_us", reception_columns, " ") }
FNR == 1 { delete at }
/^name,/ {
    gsub(/"/, "")
    count = split($0, names, ",")
    for (i = 2; i <= count; i++) at[names[i]] = i - 1
    next
}
/^"/ {
    match($0, /^"[^"]*"/)
    name = substr($0, 2, RLENGTH - 2)
    split(substr($0, RLENGTH + 2), field, ",")
    if (column("error_occurred") == "true") { problem[name] = column("error_message"); next }
    if ("MB_s" in at) add_rate()
    else if ("cpu_over_%" in at) add_pair()
    else if ("pauses_cpu_%" in at) add_reception()
    else if (name ~ /_median$/) { calls[++call_count] = name; call_ns[name] = column("cpu_time") }
}

function add_rate(  part, row) {
    split(name, part, "/")
    row = part[1] " " part[2] " " part[3]
    if (!(row in seen)) { seen[row] = 1; rows[++row_count] = row }
    rate[row, part[4]] = column("MB_s")
    spread[row] = column("spread_%") > spread[row] ? column("spread_%") : spread[row]
}

function add_pair() {
    sub(/ over .*/, "", name)
    pairs[++pair_count] = name
    for (i = 1; i <= 2; i++) {
        clock = i == 1 ? "cpu" : "wall"
        figure[name, clock, "lib"] = column("lib_" clock "_us")
        figure[name, clock, "hand"] = column("hand_" clock "_us")
        figure[name, clock, "over"] = column(clock "_over_%")
        figure[name, clock, "spread"] = column(clock "_spread_%")
    }
}

function add_reception() {
    sub(/\/.*/, "", name)
    receptions[++reception_count] = name
    for (i = 1; i <= 6; i++) reception[name, i] = column(reception_columns[i])
}

function latency(value) { return value ~ /nan/ ? "-" : sprintf("%.0f", value) }

function gigabytes(row) { return row in seen ? rate[row, "library"] / 1000 : "" }

function aim(what, value, unit, limit, at_least) {
    met = value == "" ? "not measured" : (at_least ? value >= limit : value <= limit) ? "met" : "MISSED"
    printf "  %-44s %10s %-5s aim: %s %s %-4s %s\n", what, value == "" ? "-" : sprintf("%.1f", value), unit,
           at_least ? "at least" : "at most", limit, unit, met
}

END {
    printf "\n%-32s %10s %14s %13s %10s %8s\n", "MB/s", "library", "no environment", "byte by byte", "memcpy", "spread"
    for (i = 1; i <= row_count; i++) {
        row = rows[i]
        printf "%-32s %10.0f %14.0f %13.0f %10.0f %6.0f %%\n", row, rate[row, "library"],
               rate[row, "library-no-environment"], rate[row, "byte-by-byte"], rate[row, "memcpy"], spread[row]
    }
    printf "\n%-44s %5s %9s %9s %8s %8s\n", "us a call", "", "library", "by hand", "over", "spread"
    for (i = 1; i <= pair_count; i++)
        for (j = 1; j <= 2; j++) {
            clock = j == 1 ? "cpu" : "wall"
            name = pairs[i]
            printf "%-44s %5s %9.2f %9.2f %6.1f %% %6.1f %%\n", name, clock, figure[name, clock, "lib"],
                   figure[name, clock, "hand"], figure[name, clock, "over"], figure[name, clock, "spread"]
        }
    printf "\n%-32s %7s %9s %11s %9s %9s %9s\n", "receiving; us to the callback", "cpu", "(pauses)", "median",
           "(pauses)", "99 %", "(pauses)"
    for (i = 1; i <= reception_count; i++) {
        name = receptions[i]
        printf "%-32s %5.2f %% %7.2f %% %11s %9s %9s %9s\n", name, reception[name, 1], reception[name, 2],
               latency(reception[name, 3]), latency(reception[name, 4]), latency(reception[name, 5]),
               latency(reception[name, 6])
    }
    printf "\n%-44s\n", "ns a call, nothing below the library"
    for (i = 1; i <= call_count; i++) {
        name = calls[i]
        shown = name
        sub(/_median$/, "", shown)
        printf "%-44s %15.0f\n", shown, call_ns[name]
        slowest = call_ns[name] > slowest ? call_ns[name] : slowest
    }
    print "\nAims"
    aim("framing 1 KiB of random data", gigabytes("framing random 1024"), "GB/s", 3, 1)
    aim("parsing 1 KiB of random data", gigabytes("parsing random 1024"), "GB/s", 4, 1)
    for (i = 1; i <= pair_count; i++) {
        name = pairs[i]
        limit = name ~ /Ssp/ ? 5 : name ~ /Buffer/ ? 1 : 2
        if (name !~ /Buffer/) aim(name ", cpu", figure[name, "cpu", "over"], "%", limit, 0)
        aim(name ", wall", figure[name, "wall", "over"], "%", limit, 0)
    }
    aim("receiving, at rest, cpu", reception["receiving, at rest", 1], "%", 1, 0)
    aim("slowest call", slowest, "ns", 1000, 0)
    for (name in problem) print "  " name ": not measured: " problem[name]
}

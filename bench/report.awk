# Tables of the benchmarks' CSV files, and for each aim the figure, its spread and whether it is met, and where the
# library promises pauses, what these alone make. Nothing is judged where the machine was busier with other things than
# `most_busy` per cent.

function column(name) { return field[at[name]] }

BEGIN { split("cpu_% pauses_cpu_% median_us pauses_median_us p99_us pauses_p99_us cpu_spread_% median_spread_us", reception_columns, " ") }
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
    else add_call()
}

# Its repetitions, not what the program itself makes of them.
function add_call() {
    if (name ~ /_(mean|median|stddev|cv)$/) return
    sub(/\/repeats.*/, "", name)
    if (!(name in call_runs)) calls[++call_count] = name
    call_ns[name, ++call_runs[name]] = column("cpu_time")
}

function sort_runs(name,  i, j, value) {
    for (i = 2; i <= call_runs[name]; i++) {
        value = call_ns[name, i]
        for (j = i - 1; j >= 1 && call_ns[name, j] > value; j--) call_ns[name, j + 1] = call_ns[name, j]
        call_ns[name, j + 1] = value
    }
}
function run_at(name, part) { return call_ns[name, 1 + int((call_runs[name] - 1) * part)] }

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
    for (i = 1; i <= 8; i++) reception[name, i] = column(reception_columns[i])
}

function latency(value) { return value ~ /nan/ ? "-" : sprintf("%.0f", value) }

function percent(value) { return value ~ /nan/ ? "-" : sprintf("%.2f %%", value) }

function aim_rate(what, row, limit) {
    aim(what, row in seen ? rate[row, "library"] / 1000 : "", rate[row, "library"] / 1000 * spread[row] / 100, "GB/s",
        limit, 1)
}

function aim_reception(what, name, figure, spread_figure, unit, limit,  pauses) {
    value = reception[name, figure]
    if (value ~ /nan/) value = ""
    pauses = reception[name, figure + 1]
    aim(what, value, reception[name, spread_figure], unit, limit, 0,
        pauses == "" || pauses ~ /nan/ ? "" : sprintf("the pauses alone: %.2f", pauses))
}

function aim_pair(name, clock, limit,  pauses, part) {
    if (match(name, /[0-9]+ interfaces/)) {
        part = "by hand, looking every ms, " substr(name, RSTART, RLENGTH)
        if ((part, clock, "over") in figure) pauses = sprintf("the pauses alone: %.2f", figure[part, clock, "over"])
    }
    aim(name ", " clock, figure[name, clock, "over"], figure[name, clock, "spread"], "%", limit, 0, pauses)
}

function aim(what, value, around, unit, limit, at_least, pauses) {
    if (value == "") met = "not measured"
    else if (busy > most_busy) met = "not judged"
    else if (at_least ? value >= limit : value <= limit) met = "met"
    else { met = "MISSED"; missed++ }
    printf "  %-58s %8s %-8s %-5s aim: %s %s %-4s %s%s\n", what, value == "" ? "-" : sprintf("%.2f", value),
           value == "" || around == "" || around ~ /nan/ ? "" : sprintf("+- %.2f", around), unit,
           at_least ? "at least" : "at most", limit, unit, met, pauses == "" ? "" : "  (" pauses ")"
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
        printf "%-32s %7s %9s %11s %9s %9s %9s\n", name, percent(reception[name, 1]), percent(reception[name, 2]),
               latency(reception[name, 3]), latency(reception[name, 4]), latency(reception[name, 5]),
               latency(reception[name, 6])
    }
    printf "\n%-44s %15s %10s\n", "ns a call, nothing below the library", "library", "spread"
    for (i = 1; i <= call_count; i++) {
        name = calls[i]
        sort_runs(name)
        call_median[name] = run_at(name, 0.5)
        call_spread[name] = (run_at(name, 0.75) - run_at(name, 0.25)) / 2
        printf "%-44s %15.0f %10.0f\n", name, call_median[name], call_spread[name]
    }
    print "\nAims"
    aim_rate("framing 64 B of random data", "framing random 64", 1.5)
    aim_rate("framing 1 KiB of random data", "framing random 1024", 3)
    aim_rate("framing 1 KiB of nothing but markers", "framing all-markers 1024", 1.5)
    aim_rate("parsing 64 B of random data", "parsing random 64", 1)
    aim_rate("parsing 1 KiB of random data", "parsing random 1024", 6)
    aim_rate("parsing 1 KiB of nothing but markers", "parsing all-markers 1024", 1.5)
    for (i = 1; i <= pair_count; i++) {
        name = pairs[i]
        if (name ~ /^(by hand|beside)/) continue # there to compare with
        limit = name ~ /Ssp/ ? 3 : name ~ /Buffer/ ? 1 : name ~ /Initialize/ ? 5 : 2
        for (j = 1; j <= 2; j++) {
            clock = j == 1 ? "cpu" : "wall"
            if (clock == "wall" || name !~ /Buffer/) aim_pair(name, clock, limit)
        }
    }
    aim_reception("receiving, at rest, cpu", "receiving, at rest", 1, 7, "%", 1)
    aim_reception("receiving, from rest, 99 % in the queue", "receiving, from rest", 5, 8, "us", 6000)
    aim_reception("receiving, 500 reports a second, median", "receiving, 500 reports a second", 3, 8, "us", 900)
    for (i = 1; i <= call_count; i++) {
        name = calls[i]
        aim(name, call_median[name], call_spread[name], "ns", name ~ /, 37 / ? 250 : 300, 0)
    }
    for (name in problem) print "  " name ": not measured: " problem[name]
    if (busy > most_busy) {
        printf "\nNot judged: other things took %d %% of the processors' time between the measurements, more than %d %%.\n",
               busy, most_busy
        exit 2
    }
    exit missed > 0
}

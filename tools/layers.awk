# Holds the layer table of gpe/dll/README.md, which is the first file, against the includes of the others. Faults
# go to stderr; what goes to stdout are the edges between modules, for `tsort` to find circles.

# `EventUtils_locks.cpp` belongs to `EventUtils`; all `*_natives.cpp` are one module.
function module_of(path,    name) {
    name = path
    sub(/.*\//, "", name)
    sub(/\.[a-z]+$/, "", name)
    if (name ~ /_natives$/) {
        name = "natives"
    } else if (!(name in layer)) {
        sub(/_[^_]*$/, "", name)
    }
    return name
}

function fault(text) {
    print text > "/dev/stderr"
    faults++
}

BEGIN {
    # An event writes itself through the visitor, which knows every event.
    exempt["Event", "ProtocolVisitor"]
}

# A row: the layer's number, then its modules in backticks; what they are for stands in parentheses.
NR == FNR {
    if (/^\| [0-9]+ /) {
        split($0, cell, "|")
        gsub(/\([^)]*\)/, "", cell[3])
        count = split(cell[3], word, "`")
        for (i = 2; i <= count; i += 2) {
            layer[word[i]] = cell[2] + 0
        }
    }
    next
}

FNR == 1 {
    module = module_of(FILENAME)
    present[module]
    if (!(module in layer)) {
        fault(FILENAME ": module " module " has no layer in gpe/dll/README.md")
    }
}

/^[ \t]*#[ \t]*include[ \t]*["<]/ {
    split($0, part, /["<>]/)
    other = module_of(part[2])
    if (other == module || !(module in layer) || !(other in layer)) {
        next
    }
    if (layer[other] > layer[module]) {
        fault(FILENAME ":" FNR ": layer " layer[module] " includes " part[2] " of layer " layer[other])
    } else if (!((module, other) in exempt) && !told[module, other]++) {
        print module, other
    }
}

END {
    for (name in layer) {
        if (!(name in present)) {
            fault("gpe/dll/README.md: there is no module " name)
        }
    }
    exit faults > 0
}

# The tool's command-line behaviour, a .test file per behaviour: its RUN lines
# run in bash, in a fresh folder of the test's own, and FileCheck checks what
# they print.
import os

import lit.formats

config.name = "kovani-utils"
config.suffixes = [".test"]
config.excludes = ["bin", "inputs"]
config.test_format = lit.formats.ShTest(
    execute_external=True, preamble_commands=["rm -rf %t && mkdir %t && cd %t"])

# lit passes on few variables; these two would change what the tool reads.
for name in ("KOVANI_PROPERTY_PROFILE", "KOVANI_PROPERTY_PERSIST"):
    config.environment.pop(name, None)
config.environment["PATH"] = os.pathsep.join([
    os.path.join(config.test_source_root, "bin"), os.path.dirname(config.filecheck),
    os.path.dirname(config.not_program), config.environment["PATH"]])

config.substitutions += [
    ("%kovani-utils", config.kovani_utils),
    ("%stress", config.kovani_stress),
    ("%catalogue-gen", config.catalogue_gen),
    ("%inputs", config.inputs),
    ("%expected", config.expected),
    # FileCheck for a whole output: every line, exactly.
    ("%FileCheck-exact",
     "FileCheck --match-full-lines --strict-whitespace --implicit-check-not={{.}}"),
]

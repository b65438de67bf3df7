#!/usr/bin/env python3
# validate_reports.py SCHEMA DOCUMENT ... [--xml FILE] ...: each JSON document
# valid under its draft-07 schema (itself checked), each XML file well formed;
# exit status 77, with the reason, where python3-jsonschema is missing.
import json, sys, xml.dom.minidom
try:
    import jsonschema
except ImportError:
    sys.exit(print("python3-jsonschema is missing: not validated") or 77)
for first, second in zip(sys.argv[1::2], sys.argv[2::2]):
    if first == "--xml":
        xml.dom.minidom.parse(second)
    else:
        jsonschema.validate(json.load(open(second)), json.load(open(first)), jsonschema.Draft7Validator)

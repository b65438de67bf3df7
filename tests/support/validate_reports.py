#!/usr/bin/env python3
# validate_reports.py SCHEMA DOCUMENT ... [--xml FILE] ...: each JSON document
# valid under its draft-07 schema, each XML file well formed; exit status 77,
# with the reason, where python3-jsonschema is missing.
import json, sys, xml.dom.minidom
try:
    import jsonschema
except ImportError:
    print("python3-jsonschema is missing: not validated")
    sys.exit(77)
args = sys.argv[1:]
for first, second in zip(args[::2], args[1::2]):
    if first == "--xml":
        xml.dom.minidom.parse(second)
    else:
        schema = json.load(open(first))
        jsonschema.Draft7Validator.check_schema(schema)
        jsonschema.Draft7Validator(schema).validate(json.load(open(second)))

// Reference-host code shared by fipsval and its tests.

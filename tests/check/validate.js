// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// node validate.js: reads a JSON list of pairs of a schema and a document on standard input, and
// prints a list that tells for each pair whether the document fits.
"use strict";

const Ajv = require("ajv");
const pairs = JSON.parse(require("fs").readFileSync(0, "utf-8"));
const ajv = new Ajv();
console.log(JSON.stringify(pairs.map(([schema, document]) => ajv.validate(schema, document))));

#!/usr/bin/env python3
"""Holds the schema of recipes against the table of recipes that the validator's test uses.

usage: check-recipe-schema.py SCHEMA CASES [RECIPE ...]

A case without "says" is a good recipe. The others are bad ones, and the schema refuses them too unless
"beyond" is set: then they are wrong in what refers to other places of the recipe, which no schema says.
Where "each" names a list, each of its entries is wrong by itself.
"""
import copy
import json
import sys

import jsonschema


def variants(case):
    """The recipe, and one recipe for each entry of the list that "each" names."""
    recipe = case["recipe"]
    if isinstance(recipe, dict) and recipe.get("steps") and "LONG" in json.dumps(recipe):
        recipe["steps"][0]["polygon"] = [[-32767, 0], [32767, 0]] * 300
    yield recipe
    for entry in recipe[case["each"]] if "each" in case else ():
        single = copy.deepcopy(recipe)
        single[case["each"]] = [entry]
        if case["each"] == "steps":
            single["measurements"] = [{"name": "m", "input": "image", "value": "mean"}]
        yield single


def main() -> int:
    schema_path, cases_path, *recipes = sys.argv[1:]
    with open(schema_path, encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    with open(cases_path, encoding="utf-8") as file:
        cases = json.load(file)
    wrong = []
    checked = 0
    for case in cases:
        expected = "says" not in case or case.get("beyond", False)
        for recipe in variants(case):
            checked += 1
            if validator.is_valid(recipe) != expected:
                text = json.dumps(recipe)[:200]
                wrong.append(f"{case['case']}: the schema {'refuses' if expected else 'accepts'} {text}")
    for path in recipes:
        with open(path, encoding="utf-8") as file:
            if not validator.is_valid(json.load(file)):
                wrong.append(f"{path}: the schema refuses it")
    for line in wrong:
        print(line)
    bad = sum("says" in case for case in cases)
    print(f"{len(cases) - bad} good and {bad} bad cases, {checked} recipes, {len(recipes)} files, {len(wrong)} wrong")
    return 1 if wrong or not bad or bad == len(cases) else 0


if __name__ == "__main__":
    sys.exit(main())

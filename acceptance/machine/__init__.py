"""The machine that things are plugged into: image.py makes it, vm.py runs it, scenario.py tries the product in it."""

"""Figures of the measurements that scripts/capacity wrote: FOLDER/*.json to FOLDER/*.svg."""

import json
import pathlib
import sys

import matplotlib

matplotlib.use("svg")
# The same measurements give the same bytes.
matplotlib.rcParams["svg.hashsalt"] = "corvanth"
matplotlib.rcParams["font.size"] = 9
matplotlib.rcParams["axes.spines.top"] = False
matplotlib.rcParams["axes.spines.right"] = False

from matplotlib import pyplot

# The kernel cuts the process's name, which the receiving thread bears.
NODE_THREADS = {"packet reader": "packet reader", "corvanthmediano": "receiving", "reports": "reports",
                "kafka consumer": "Kafka consumer"}


def load(folder, name):
    return json.loads((folder / (name + ".json")).read_text())


def save(figure, axes, folder, name):
    axes.set_xlim(left=0)
    axes.set_ylim(bottom=0)
    axes.grid(alpha=0.3)
    figure.tight_layout()
    figure.savefig(folder / (name + ".svg"), metadata={"Date": None})
    pyplot.close(figure)


def plot_calls(folder):
    results = load(folder, "calls")
    calls = [result["calls_at_once"] for result in results]
    figure, axes = pyplot.subplots(figsize=(6.4, 3.6))
    for thread, label in NODE_THREADS.items():
        axes.plot(calls, [100 * result["node_cpu"].get(thread, 0) for result in results], marker="o", label=label)
    axes.plot(calls, [100 * result["load_cpu"].get("load sender", 0) for result in results], marker="o",
              linestyle=":", color="grey", label="load generator")
    axes.set_xlabel("two-sided calls at once")
    axes.set_ylabel("% of one processor")
    axes.set_title(f"{results[0]['prompts_in_database']} prompts, four phases")
    axes.legend(frameon=False)
    save(figure, axes, folder, "calls")


def plot_database(folder):
    results = load(folder, "database")
    prompts = [result["prompts_in_database"] for result in results]
    figure, axes = pyplot.subplots(figsize=(6.4, 3.6))
    axes.plot(prompts, [1e6 * result["node_cpu"].get("packet reader", 0) / result["calls_at_once"] for result in results],
              marker="o")
    axes.set_xlabel("prompts in the rule's database, four phases")
    axes.set_ylabel("packet reader, µs per call and second")
    axes.set_title(f"{results[0]['calls_at_once']} two-sided calls")
    save(figure, axes, folder, "database")


def plot_length(folder):
    result = load(folder, "length")[0]
    calls, timeline = result["calls_at_once"], result["timeline"]
    ages = [point["at_s"] for point in timeline]
    figure, axes = pyplot.subplots(figsize=(6.4, 3.6))
    axes.plot(ages, [1e6 * point["node_cpu"].get("packet reader", 0) / calls for point in timeline], marker="o")
    axes.set_xlabel("seconds since the calls began (to 5 s)")
    axes.set_ylabel("packet reader, µs per call and second")
    axes.set_title(f"{calls} two-sided calls, {result['prompts_in_database']} prompts, four phases")
    memory = axes.twinx()
    memory.spines["right"].set_visible(True)
    memory.plot(ages, [point["node_mib"] for point in timeline], marker="s", color="tab:orange")
    memory.set_ylabel("node's resident memory, MiB", color="tab:orange")
    memory.set_ylim(bottom=0, top=1.2 * max(point["node_mib"] for point in timeline))
    save(figure, axes, folder, "length")


def main():
    folder = pathlib.Path(sys.argv[1])
    plot_calls(folder)
    plot_database(folder)
    plot_length(folder)


if __name__ == "__main__":
    main()

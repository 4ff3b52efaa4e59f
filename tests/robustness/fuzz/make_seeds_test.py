"""The seed corpus of the fuzz targets is that of make_seeds.py."""

import make_seeds


def test_corpus_is_up_to_date():
    corpus = {path: path.read_bytes() for path in make_seeds.CORPUS.rglob("*") if path.is_file()}
    outdated = {str(path.relative_to(make_seeds.CORPUS)) for path in corpus.keys() | make_seeds.seeds.keys()
                if corpus.get(path) != make_seeds.seeds.get(path)}
    assert not outdated, "run make_seeds.py to update them"

// What the loop's child does before it answers: the landing page's walks through the data sources, or nothing.
void walk_data_sources();
